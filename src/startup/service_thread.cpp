#include "startup/service_thread.h"

#include "platform/clock.h"
#include "usb/usb_server_thread.h"
#include "winmidi/midi_scan.h"

namespace corvalint {

std::atomic<bool> ServiceRunning{false};

namespace {

constexpr std::uint32_t kScanMilliseconds = 5000;

}  // namespace

void RunService() {
  ServiceRunning = true;
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
