#include "platform/virtual_midi_api.h"

#include "platform/missing_libraries.h"
#include "platform/windows/modules.h"

namespace corvalint {
namespace {

// Written once, under the one-time initialisation below. Empty when the driver is not installed.
VirtualMidiApi driver;
bool driverFound = false;

BOOL CALLBACK BindDriver(INIT_ONCE*, void*, void**) {
  const HMODULE module = FindModule("teVirtualMIDI64.dll");
  driverFound = module != nullptr &&
                Bind(module, "virtualMIDICreatePortEx2", driver.virtualMIDICreatePortEx2) &&
                Bind(module, "virtualMIDISendData", driver.virtualMIDISendData) &&
                Bind(module, "virtualMIDIClosePort", driver.virtualMIDIClosePort);
  return TRUE;
}

}  // namespace

const VirtualMidiApi& VirtualMidiApi::System() {
  static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
  InitOnceExecuteOnce(&once, BindDriver, nullptr, nullptr);
  return driverFound ? driver : MissingVirtualMidi();
}

}  // namespace corvalint
