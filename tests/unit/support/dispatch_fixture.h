#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "ports/desktop_names.h"
#include "protocol/osc_listener.h"
#include "support/clear_desktop.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_virtual_midi.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/recording_client.h"
#include "support/test_client.h"
#include "support/test_server.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint::test {

inline constexpr std::int64_t kBeyond32Bits = 0x123456789ABCDEF;
inline const std::string kNote("\x90\x3C\x7F", 3);

// One device's client without a run, a second device that keeps what it is sent, and the desktop's
// destinations.
class DispatchFixture : public testing::Test {
 protected:
  DispatchFixture() : peer(client.Prepare()) {
    client.OpenNow();
    server.clients.Append(client);
    server.clients.Append(other);
    manager.SetDeviceKey("pad");
    ClearDesktop();
  }
  ~DispatchFixture() override {
    ClearDesktop();
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  }

  static void AddDestination(std::int32_t id) {
    const auto destination = std::make_shared<MidiDestinationEndpoint>();
    destination->name = "Synth";
    destination->uniqueId = id;
    MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
    CriticalSectionScope hold(registry.listLock);
    registry.Append(destination);
  }

  void Take(const std::string& packet) {
    client.ProcessPacket(packet.data(), packet.size(), RemoteEndpoint{0, 23451});
  }
  void Publish(std::int32_t id) {
    Take(EndpointMessage("/add_remote_source", "Piano", id));
    driver.TakeCalls();
    console.Take();
    other.TakePackets();
    other.scripted.TakeQuestions();
  }
  // Nothing but that packet has gone to the device.
  void ExpectReply(const std::string& packet) {
    EXPECT_EQ(peer->ReceiveFrame(), packet);
    EXPECT_TRUE(peer->Silent());
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  FakeVirtualMidi driver;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  TestClient client{server, manager};
  std::unique_ptr<StreamPeer> peer;
  RecordingClient other;
};

}  // namespace corvalint::test
