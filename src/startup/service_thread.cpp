#include "startup/service_thread.h"

#include <exception>
#include <string>

#include "platform/clock.h"
#include "service/config_file.h"
#include "service/log.h"
#include "startup/service_start.h"
#include "usb/usb_server_thread.h"
#include "winmidi/midi_scan.h"

namespace corvalint {

std::atomic<bool> ServiceRunning{false};

namespace {

constexpr std::uint32_t kScanMilliseconds = 5000;

// A line that ends the reading costs the lines after it, never the service.
void ReadConfiguration(ConfigMap& map, const std::string& path) {
  try {
    ReadConfigFile(map, path.c_str());
  } catch (const std::exception& failure) {
    LogError("%s not read to its end: %s", path.c_str(), failure.what());
  }
}

}  // namespace

void RunService() {
  const std::string path = HostFolder() + "\\pellora.conf";
  ServiceRunning = true;
  ConfigMap configuration;  // kept as long as the service; no key means anything yet
  ReadConfiguration(configuration, path);
  auto* const server = new UsbServerThread;  // lives until the process ends
  theUsbServer = server;
  server->Start();
  while (ServiceRunning) {
    Use<ClockApi>().sleep(kScanMilliseconds);
    ScanMidiDevices(GetMidiEndpointRegistry());
  }
}

std::uint32_t ServiceThread::Run() {
  RunService();
  return 0;
}

}  // namespace corvalint
