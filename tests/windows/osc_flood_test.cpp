// Tens of thousands of datagrams through a loopback OSC port of the shipped DLL: what the kernel
// drops because somebody reads too slowly is counted, and the library loses nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>

#include "windows/support/osc_ports.h"
#include "windows/support/serving.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kFlood = 60000;
constexpr std::size_t kPaced = 20000;
constexpr std::size_t kInFlight = 64;  // datagrams on their way in a paced run

std::vector<Bytes> Datagrams(std::size_t count) {
  std::mt19937 random(20);
  std::uniform_int_distribution<std::size_t> sizes(1, 1400);
  std::vector<Bytes> list(count);
  for (Bytes& datagram : list) {
    datagram.resize(sizes(random));
    for (std::uint8_t& byte : datagram) byte = static_cast<std::uint8_t>(random());
  }
  return list;
}

// That the datagrams are some of those that were sent, in their order and unchanged.
testing::AssertionResult AreInOrder(const std::vector<Bytes>& received,
                                    const std::vector<Bytes>& sent) {
  auto next = sent.begin();
  for (std::size_t i = 0; i < received.size(); ++i) {
    next = std::find(next, sent.end(), received[i]);
    if (next == sent.end()) {
      return testing::AssertionFailure() << "number " << i << " of the received ones is none";
    }
    ++next;
  }
  return testing::AssertionSuccess();
}

// What arrives somewhere, filled by one thread and looked at by others.
class Arrivals {
 public:
  void Add(Bytes datagram) {
    const std::lock_guard hold(lock);
    list.push_back(std::move(datagram));
  }
  std::size_t Count() const {
    const std::lock_guard hold(lock);
    return list.size();
  }
  std::vector<Bytes> List() const {
    const std::lock_guard hold(lock);
    return list;
  }

 private:
  mutable std::mutex lock;
  std::vector<Bytes> list;
};

class OscFlood : public testing::Test {
 protected:
  OscFlood() {
    if (!port.Create()) throw std::runtime_error("no port");
    collecting = true;
    reader = std::thread([this] { Read(); });
  }
  ~OscFlood() override {
    done = true;
    reader.join();
  }
  void TearDown() override {
    EXPECT_TRUE(app->Flush());
    EXPECT_EQ(bridge.GetDesk().Log().find("frames dropped"), std::string::npos);
    EXPECT_EQ(bridge.GetDesk().Log().find("too long for a frame"), std::string::npos);
    EXPECT_EQ(bridge.GetHost().Notes(), "");
    ExpectClean(bridge, {app.get()});
  }

  // The desktop program's reading.
  void Read() {
    while (!done) {
      if (auto datagram = port.Program().Receive(std::chrono::milliseconds(20))) {
        atProgram.Add(std::move(*datagram));
      }
    }
  }

  // Until nothing is on its way any more: all has arrived or was dropped at that socket.
  static bool WaitForAll(const Arrivals& arrivals, std::uint16_t socket, std::size_t sent) {
    return Await([&] { return arrivals.Count() + UdpSocketOn(socket).dropped >= sent; });
  }

  static void Tell(const char* way, std::size_t sent, const Arrivals& arrivals,
                   std::uint64_t dropped, Clock::time_point start) {
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    std::cout << way << ": " << sent << " sent, " << arrivals.Count() << " received, " << dropped
              << " dropped by the kernel, " << took << " ms\n";
  }

  device::DeviceOptions Options() {
    device::DeviceOptions options;
    options.onMessage = [this](const device::ReceivedMessage& received) {
      if (collecting && received.message.address == "/osc") {
        atDevice.Add(received.message.Argument<Bytes>(1));
      }
    };
    return options;
  }

  Arrivals atDevice;
  Arrivals atProgram;
  std::atomic<bool> collecting{false};
  std::atomic<bool> done{false};
  Bridge bridge;
  std::unique_ptr<PluggedDevice> app{bridge.Plug("device-a", Options())};
  OscPort port{*app};
  std::thread reader;
};

TEST_F(OscFlood, FromAProgramAtFullSpeed) {
  const std::vector<Bytes> sent = Datagrams(kFlood);
  const auto start = Clock::now();
  const UdpProgram sender;
  for (const Bytes& datagram : sent) sender.Send(port.Bind(), datagram);
  EXPECT_TRUE(WaitForAll(atDevice, port.Bind(), kFlood));
  const std::uint64_t dropped = UdpSocketOn(port.Bind()).dropped;
  Tell("program to device at full speed", kFlood, atDevice, dropped, start);
  EXPECT_EQ(atDevice.Count() + dropped, kFlood);
  EXPECT_GT(atDevice.Count(), 0u);
  EXPECT_TRUE(AreInOrder(atDevice.List(), sent));
}

TEST_F(OscFlood, FromADeviceAtFullSpeed) {
  const std::vector<Bytes> sent = Datagrams(kFlood);
  device::FrameBatch batch;
  for (const Bytes& datagram : sent) batch.AddPacket(DataPacket(port.DestinationKey(), datagram));
  const auto start = Clock::now();
  ASSERT_TRUE(app->App().SendBatch(batch));
  EXPECT_TRUE(WaitForAll(atProgram, port.Program().Port(), kFlood));
  const std::uint64_t dropped = UdpSocketOn(port.Program().Port()).dropped;
  Tell("device to program at full speed", kFlood, atProgram, dropped, start);
  EXPECT_EQ(atProgram.Count() + dropped, kFlood);
  EXPECT_GT(atProgram.Count(), 0u);
  EXPECT_TRUE(AreInOrder(atProgram.List(), sent));
}

// At a pace that everybody can read at, nobody loses anything.
TEST_F(OscFlood, BothWaysPaced) {
  const std::vector<Bytes> sent = Datagrams(kPaced);
  const auto start = Clock::now();
  const UdpProgram sender;
  const auto canSend = [](const Arrivals& arrivals, std::size_t i) {
    return Await([&] { return arrivals.Count() + kInFlight >= i; });
  };
  for (std::size_t i = 0; i < kPaced; ++i) {
    ASSERT_TRUE(canSend(atDevice, i) && canSend(atProgram, i)) << i;
    sender.Send(port.Bind(), sent[i]);
    ASSERT_TRUE(app->App().SendPacket(DataPacket(port.DestinationKey(), sent[i])));
  }
  EXPECT_TRUE(WaitForAll(atDevice, port.Bind(), kPaced));
  EXPECT_TRUE(WaitForAll(atProgram, port.Program().Port(), kPaced));
  Tell("program to device paced", kPaced, atDevice, UdpSocketOn(port.Bind()).dropped, start);
  Tell("device to program paced", kPaced, atProgram, UdpSocketOn(port.Program().Port()).dropped,
       start);
  EXPECT_TRUE(atDevice.List() == sent);
  EXPECT_TRUE(atProgram.List() == sent);
}

}  // namespace
}  // namespace corvalint::windows_test
