#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ports/desktop_names.h"
#include "support/clear_desktop.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_mobile_device.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/scripted_sockets.h"
#include "support/test_server.h"
#include "support/tracked_threads.h"
#include "usb/usb_client_thread.h"

namespace corvalint::test {

// A client of the device "pad", connection 171 (0xAB). It runs on the test's own thread
// (RunHere, which a hook must end) or on one of its own (StartThread).
class UsbClientFixture : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  UsbClientFixture() {
    ClearDesktop();
    client = new UsbClientThread(server, device, manager);
    server.clients.Append(*client);
  }
  ~UsbClientFixture() override {
    threads.JoinAll();
    ClearDesktop();
    EXPECT_EQ(threads.OpenHandles(), 0u);
    EXPECT_EQ(threads.Terminated(), 0);
    EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 1);
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  }

  template <class Endpoint>
  static std::shared_ptr<Endpoint> Fill(std::shared_ptr<Endpoint> endpoint, const char* name,
                                        std::int32_t id, bool on, bool open) {
    static int anything;
    endpoint->name = name;
    endpoint->uniqueId = id;
    endpoint->off = !on;
    endpoint->handle = open ? &anything : nullptr;
    return endpoint;
  }
  static void AddSource(const char* name, std::int32_t id, bool on = true, bool open = true) {
    MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
    CriticalSectionScope hold(registry.listLock);
    registry.sources.push_back(
        Fill(std::make_shared<MidiSourceEndpoint>(registry), name, id, on, open));
  }
  static void AddDestination(const char* name, std::int32_t id, bool on = true, bool open = true) {
    MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
    CriticalSectionScope hold(registry.listLock);
    registry.destinations.push_back(
        Fill(std::make_shared<MidiDestinationEndpoint>(), name, id, on, open));
  }

  // Stops the client as the server does when the device leaves.
  void Depart() {
    ASSERT_TRUE(client->gate.TryBorrow());
    client->Stop();
    server.clients.Remove(*client);
    client->gate.Return();
  }
  void DepartAtSleep(int number) {
    clock.WhenSleeping([this, number](std::uint32_t) {
      if (++sleeps == number) Depart();
    });
  }

  void RunHere() {
    threads.HoldNext();
    client->Start();
    threads.RunHeld();
  }
  std::unique_ptr<StreamPeer> StartThread() {
    client->Start();
    return library.NextStream(device);
  }
  // Whatever was announced stands before the answer.
  static void ExpectAnnounced(StreamPeer& peer, const Lines& packets) {
    peer.SendFrame(OscMessage("/init_timing", "h", OscInt64(0)));
    for (const std::string& packet : packets) EXPECT_EQ(peer.ReceiveFrame(), packet);
    EXPECT_EQ(peer.ReceiveFrame().substr(0, 12), OscText("/init_timing").substr(0, 12));
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  ScriptedSockets sockets;
  FakeMobileDevice library;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  TrackedThreads threads;
  DeviceHandle device = library.AddDevice("pad", 0xAB);
  UsbClientThread* client;
  int sleeps = 0;
};

}  // namespace corvalint::test
