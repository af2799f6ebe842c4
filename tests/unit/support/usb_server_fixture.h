#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_mobile_device.h"
#include "support/fake_virtual_midi.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/scripted_sockets.h"
#include "support/tracked_threads.h"
#include "usb/usb_server_thread.h"

namespace corvalint::test {

// Servers live until the process ends; this keeps them reachable.
inline UsbServerThread& NewServer() {
  static auto* const servers = new std::vector<UsbServerThread*>;
  servers->push_back(new UsbServerThread);
  return *servers->back();
}

// A server with its thread, which sleeps until the test ends. The other threads' sleeps take no
// time.
class UsbServerFixture : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  // What the device library tells.
  static constexpr std::uint32_t kConnected = 1;
  static constexpr std::uint32_t kDisconnected = 2;

  UsbServerFixture() {
    theUsbServer = &server;
    clock.WhenSleeping([this](std::uint32_t milliseconds) {
      if (milliseconds != 10000) return;
      std::unique_lock hold(mutex);
      ++idleSleeps;
      changed.notify_all();
      changed.wait(hold, [this] { return wakes; });
    });
  }
  ~UsbServerFixture() override {
    theUsbServer = &server;
    library.ForgetActions();
    for (const DeviceHandle device : ListedDevices()) library.Notify(device, kDisconnected);
    EXPECT_EQ(server.clients.Count(), 0u);
    EndServer();
    threads.JoinAll();
    theUsbServer = nullptr;
    driver.TakeCalls();
    EXPECT_EQ(threads.OpenHandles(), server.HasThread() ? 1u : 0u) << "but for the server's own";
    EXPECT_EQ(threads.Terminated(), 0);
  }

  void StartServer() {
    server.Start();
    std::unique_lock hold(mutex);
    changed.wait(hold, [this] { return idleSleeps > 0; });
  }
  void EndServer() {
    server.Stop();
    const std::lock_guard hold(mutex);
    wakes = true;
    changed.notify_all();
  }

  std::vector<DeviceHandle> ListedDevices() {
    std::vector<DeviceHandle> devices;
    for (DeviceClient* listed : ClientWalk(server.clients)) {
      devices.push_back(static_cast<UsbClientThread*>(listed)->Device());
    }
    return devices;
  }
  // The client of that device, while it is listed.
  UsbClientThread* ClientOf(DeviceHandle device) {
    for (DeviceClient* listed : ClientWalk(server.clients)) {
      auto* const client = static_cast<UsbClientThread*>(listed);
      if (client->Device() == device) return client;
    }
    return nullptr;
  }
  // Returns once the client has read everything that was sent to it.
  static void Settle(StreamPeer& peer) {
    peer.SendFrame(OscMessage("/init_timing", "h", OscInt64(0)));
    while (peer.ReceiveFrame().rfind("/init_timing", 0) != 0) {
    }
  }
  std::unique_ptr<StreamPeer> Attach(DeviceHandle device) {
    library.Notify(device, kConnected);
    return library.NextStream(device);
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  ScriptedSockets sockets;
  FakeVirtualMidi driver;
  FakeMobileDevice library;
  TrackedThreads threads;
  UsbServerThread& server = NewServer();
  DeviceHandle pad = library.AddDevice("pad", 1);
  DeviceHandle phone = library.AddDevice("phone", 2);
  std::mutex mutex;
  std::condition_variable changed;
  int idleSleeps = 0;
  bool wakes = false;
};

}  // namespace corvalint::test
