#include "startup/service_start.h"

#include <exception>
#include <memory>

#include "platform/process.h"
#include "platform/socket.h"
#include "service/log.h"
#include "startup/service_thread.h"
#include "usb/usb_libraries.h"

namespace corvalint {

namespace {

void PrepareAndStart() {
  const ProcessApi& process = Use<ProcessApi>();
  // Unloading the library under its running threads and the callbacks that drivers hold would be
  // the end of the host.
  process.pinModule();
  // A driver that plays long messages by itself is polled every millisecond.
  process.sharpenTimers();
  Use<SocketApi>().startUp();
  LogInit((HostFolder() + "\\pellora.log").c_str());
  LogSetThreshold(kLogDebug);
  LoadUsbLibraries();
  auto service = std::make_unique<ServiceThread>();
  service->Start();
  if (service->HasThread()) static_cast<void>(service.release());  // never destroyed
}

}  // namespace

void StartService() {
  try {
    PrepareAndStart();
  } catch (const std::exception& failure) {
    LogError("service not started: %s", failure.what());
  }
}

std::string HostFolder() {
  const std::string path = Use<ProcessApi>().executablePath();
  const std::size_t backslash = path.rfind('\\');
  return backslash == std::string::npos ? std::string() : path.substr(0, backslash);
}

}  // namespace corvalint
