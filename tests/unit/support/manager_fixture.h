#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ports/external_midi_manager.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_virtual_midi.h"
#include "support/recording_client.h"
#include "support/test_server.h"

namespace corvalint::test {

// A manager of the device "phone", and another device that hears of its endpoints.
class ExternalMidiManagerTest : public ::testing::Test {
 protected:
  ExternalMidiManagerTest() : manager(server, server.Lock(), names), own(manager) {
    manager.SetDeviceKey("phone");
    server.clients.Append(own);
    server.clients.Append(other);
  }

  // What the driver and the other device were told since the last time; the device itself and its
  // owner must never hear of their own endpoints.
  std::vector<std::string> Calls() { return driver.TakeCalls(); }
  std::vector<std::string> Told() {
    EXPECT_EQ(own.TakePackets(), std::vector<std::string>{});
    return other.TakePackets();
  }

  FakeClock clock{12345};
  FakeVirtualMidi driver;
  ConsoleCapture console;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager;
  RecordingClient own;
  RecordingClient other;
};

}  // namespace corvalint::test
