#include "host/windows_wrapper.h"

#include <windows.h>

#include <string>

#include "host/windows_modules.h"
#include "host/windows_text.h"

namespace corvalint::host {
namespace {

template <typename Function>
void Bind(HMODULE module, const char* name, Function& function) {
  function = ExportOf<Function>(module, name);
  if (function == nullptr) {
    throw NoLibrary(std::string("corvalint_wrapper.dll has no export ") + name +
                    ": it is another library");
  }
}

}  // namespace

Wrapper LoadWrapper() {
  const std::wstring path = ProgramFolder() + L"corvalint_wrapper.dll";
  const HMODULE module = LoadLibraryW(path.c_str());
  if (module == nullptr) {
    throw NoLibrary(WideToUtf8(path) + " cannot be loaded: " + ErrorText(GetLastError()));
  }
  Wrapper calls;
  Bind(module, "corvalintServerStart", calls.start);
  Bind(module, "corvalintServerWiFiClients", calls.wifiClients);
  Bind(module, "corvalintServerUSBClients", calls.usbClients);
  Bind(module, "corvalintServerScriptActive", calls.scriptActive);
  Bind(module, "corvalintServerActiveConnections", calls.activeConnections);
  Bind(module, "initliaze_port_control", calls.portControl);
  Bind(module, "corvalintServerGetCountOfSources", calls.sources.count);
  Bind(module, "get_unique_id_source", calls.sources.idAt);
  Bind(module, "get_source_name_length", calls.sources.nameLength);
  Bind(module, "corvalintServerGetActiveMIDISourceName", calls.sources.nameByte);
  Bind(module, "set_source_status", calls.sources.toggle);
  Bind(module, "get_source_status", calls.sources.status);
  Bind(module, "get_source_available", calls.sources.available);
  Bind(module, "corvalintServerGetCountOfDestinations", calls.destinations.count);
  Bind(module, "get_unique_id_destination", calls.destinations.idAt);
  Bind(module, "get_dest_name_length", calls.destinations.nameLength);
  Bind(module, "corvalintServerGetActiveMIDIDestName", calls.destinations.nameByte);
  Bind(module, "set_destination_status", calls.destinations.toggle);
  Bind(module, "get_destination_status", calls.destinations.status);
  Bind(module, "get_destination_available", calls.destinations.available);
  return calls;
}

}  // namespace corvalint::host
