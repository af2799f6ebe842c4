#pragma once

#include <string>

#include "clients/usb_server.h"
#include "fuzz/support/check.h"
#include "ports/external_midi_manager.h"

namespace corvalint::fuzz {

// A server of devices whose clients a target makes itself. Made once, and never destroyed.
class BenchServer final : public UsbServer {
 public:
  BenchServer() {
    midiLock = &publishedPortsLock;
    theUsbServer = this;
  }
  bool AnyManagerOwns(const std::string&) override { return false; }
  void BeginDesktopScan() override {}
  void EndDesktopScan() override {}

  CriticalSection& Lock() { return publishedPortsLock; }

  void CheckLocks() const {
    Check(clientLock.HoldsOfThisThread() == 0, "clientLock was kept");
    Check(publishedPortsLock.HoldsOfThisThread() == 0, "midiLock was kept");
  }

 private:
  CriticalSection publishedPortsLock;
};

// Withdraws everything that a manager publishes.
inline void Withdraw(ExternalMidiManager& manager) {
  for (const PublishedEndpoint& endpoint : manager.PublishedEndpoints()) {
    try {
      if (endpoint.kind == EndpointKind::source) {
        manager.RemoveRemoteSource("", endpoint.id);
      } else {
        manager.RemoveRemoteDestination("", endpoint.id);
      }
    } catch (const std::exception&) {
      Fail("an endpoint could not be withdrawn");
    }
  }
  Check(manager.PublishedEndpoints().empty(), "an endpoint that stays");
}

}  // namespace corvalint::fuzz
