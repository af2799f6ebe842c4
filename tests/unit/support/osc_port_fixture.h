#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ports/local_osc_port_table.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/scripted_datagrams.h"
#include "support/tracked_threads.h"
#include "support/udp_program.h"

namespace corvalint::test {

// The client of a device, which keeps what its ports give it. Any thread.
class PortOwner final : public LocalOSCPortDelegate {
 public:
  void SendPacket(const void* data, std::uint64_t size) override {
    std::function<void()> action;
    {
      const std::lock_guard hold(mutex);
      packets.emplace_back(static_cast<const char*>(data), size);
      action = whenSending;
    }
    came.notify_all();
    if (action) action();
  }
  bool IsCrowded() override { return crowded; }
  // Runs inside each call, on the port's thread, once the packet is kept.
  void WhenSending(std::function<void()> action) {
    const std::lock_guard hold(mutex);
    whenSending = std::move(action);
  }
  // Waits for the next packet.
  std::string Next() {
    std::unique_lock hold(mutex);
    if (!came.wait_for(hold, std::chrono::seconds(30), [this] { return !packets.empty(); })) {
      ADD_FAILURE() << "no packet came";
      return "nothing came";
    }
    std::string packet = std::move(packets.front());
    packets.pop_front();
    return packet;
  }
  std::vector<std::string> Take() {
    const std::lock_guard hold(mutex);
    const std::vector<std::string> taken(packets.begin(), packets.end());
    packets.clear();
    return taken;
  }

  std::atomic<bool> crowded{false};

 private:
  std::mutex mutex;
  std::condition_variable came;
  std::deque<std::string> packets;
  std::function<void()> whenSending;
};

inline std::string PortReport(const std::string& bindKey, std::int32_t status) {
  return OscMessage("/osc/port_creation_report", "si", OscText(bindKey) + OscInt32(status));
}
inline std::string PortData(const std::string& bindKey, const std::string& bytes) {
  return OscMessage("/osc", "sb", OscText(bindKey) + OscBlobBytes(bytes));
}
inline std::string Key(std::int32_t port) { return "127.0.0.1" + std::to_string(port); }

// A table of ports with its owner, a desktop program and a free number for a port. Whatever is left
// open, running or terminated at its end fails the test.
class OscPortFixture : public testing::Test {
 protected:
  using Packets = std::vector<std::string>;
  using Sleeps = std::vector<std::uint32_t>;
  using PortPointer = std::shared_ptr<LocalOSCPort>;

  ~OscPortFixture() override {
    EndAll();
    EXPECT_EQ(threads.OpenHandles(), 0u);
    EXPECT_EQ(threads.Terminated(), 0);
  }

  // Removes what is left and waits for all threads.
  void EndAll() {
    table.reset();
    threads.JoinAll();
  }
  // A port that has told that it is ready.
  PortPointer Ready(std::int32_t bindPort, std::int32_t destinationPort) {
    const PortPointer port = table->CreatePort(destinationPort, bindPort, "127.0.0.1");
    EXPECT_EQ(owner.Next(), PortReport(Key(bindPort), 1));
    return port;
  }
  PortPointer Ready() { return Ready(number, program.Port()); }
  // A datagram comes through, so the port is alive and at that number.
  void ExpectAlive(std::uint16_t at, const std::string& bindKey) {
    program.Send(at, "alive?");
    EXPECT_EQ(owner.Next(), PortData(bindKey, "alive?"));
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  ScriptedDatagrams datagrams;
  TrackedThreads threads;
  PortOwner owner;
  UdpProgram program;
  const std::uint16_t number = FreeUdpPort();
  std::unique_ptr<LocalOSCPortTable> table = std::make_unique<LocalOSCPortTable>(owner);
};

}  // namespace corvalint::test
