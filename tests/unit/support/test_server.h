#pragma once

#include <atomic>
#include <set>
#include <string>

#include "clients/usb_server.h"

namespace corvalint::test {

// A server of devices without devices: its `midiLock` stands from the start, and a test puts its
// own clients into `clients`. It is `theUsbServer` for as long as it lives.
class TestServer final : public UsbServer {
 public:
  TestServer() {
    midiLock = &lock;
    theUsbServer = this;
  }
  ~TestServer() { theUsbServer = nullptr; }
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  bool AnyManagerOwns(const std::string& endpointName) override {
    ++questions;
    return ownedNames.count(endpointName) != 0;
  }
  void BeginDesktopScan() override { ++scansBegun; }
  void EndDesktopScan() override { ++scansEnded; }

  CriticalSection& Lock() { return lock; }

  // The names that AnyManagerOwns says yes to; set before other threads ask.
  std::set<std::string> ownedNames;
  std::atomic<int> questions{0};
  std::atomic<int> scansBegun{0};
  std::atomic<int> scansEnded{0};

 private:
  CriticalSection lock;
};

}  // namespace corvalint::test
