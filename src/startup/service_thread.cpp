#include "startup/service_thread.h"

#include <exception>

#include "platform/clock.h"
#include "service/log.h"
#include "usb/usb_server_thread.h"
#include "winmidi/midi_scan.h"

namespace corvalint {

std::atomic<bool> ServiceRunning{false};

namespace {

constexpr std::uint32_t kScanMilliseconds = 5000;

void ScanOnce() {
  try {
    ScanMidiDevices(GetMidiEndpointRegistry());
  } catch (const std::exception& failure) {
    // The next scan is another chance.
    LogError("MIDI scan failed: %s", failure.what());
  }
}

}  // namespace

void RunService() {
  ServiceRunning = true;
  auto* const server = new UsbServerThread;  // lives until the process ends
  theUsbServer = server;
  server->Start();
  while (ServiceRunning) {
    Use<ClockApi>().sleep(kScanMilliseconds);
    ScanOnce();
  }
}

std::uint32_t ServiceThread::Run() {
  RunService();
  return 0;
}

}  // namespace corvalint
