// Ports under load: every datagram is counted, and none of them needs the heap.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "clients/big_endian.h"
#include "ports/desktop_names.h"
#include "ports/local_osc_port.h"
#include "support/allocation_count.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/stream_peer.h"
#include "support/test_client.h"
#include "support/test_server.h"
#include "support/tracked_threads.h"
#include "support/udp_program.h"

namespace corvalint {
namespace {

using namespace test;

std::string KeyOf(std::uint16_t port) { return OscPortKey("127.0.0.1", port); }

// --- counting

constexpr int kDatagrams = 60000;

class OscPortTraffic : public testing::Test {
 protected:
  OscPortTraffic() : peer(client.Prepare()) { client.OpenNow(); }
  ~OscPortTraffic() override {
    client.ReleasePorts();
    threads.JoinAll();
  }

  // Datagrams of 1 to 1,400 bytes; the blob's size and bytes say which one it was.
  static std::string DatagramNumber(int index) {
    return std::string(static_cast<std::size_t>(1 + index % 1400), static_cast<char>(index));
  }
  // What the device reads until the end of the stream. It looks no further than it must: the slower
  // the device, the more is lost.
  std::string ReadAll() {
    std::string bytes;
    bytes.reserve(std::size_t{kDatagrams} * 800);
    for (std::size_t at = 0;;) {
      const std::string more = peer->ReceiveSome();
      if (more.empty()) return bytes;
      bytes += more;
      while (bytes.size() - at >= 12) {
        const std::size_t size = 12 + ReadBigEndian32(bytes.data() + at);
        if (bytes.size() - at < size) break;
        at += size;
        ++framesRead;
      }
    }
  }
  // How many datagrams are in these frames. Each must be whole.
  std::uint64_t CountDatagrams(const std::string& frames) const {
    const std::size_t header = 12 + OscMessage("/osc", "sb", OscText(KeyOf(number))).size();
    std::uint64_t count = 0;
    for (std::size_t at = 0; at < frames.size(); ++count) {
      const std::size_t size =
          at + header + 4 > frames.size() ? 0 : ReadBigEndian32(frames.data() + at + header);
      const char byte = size == 0 ? 'x' : frames[at + header + 4];
      const std::string frame = FrameOf(
          OscMessage("/osc", "sb", OscText(KeyOf(number)) + OscBlobBytes(std::string(size, byte))));
      if (size == 0 || frames.compare(at, frame.size(), frame) != 0) {
        ADD_FAILURE() << "frame " << count << " is broken";
        return count;
      }
      at += frame.size();
    }
    return count;
  }
  std::uint64_t FramesDropped() const {
    std::uint64_t dropped = 0;
    const std::string text = "DEBUG the device did not read: ";
    for (const std::string& line : log.Lines()) {
      if (line.compare(0, text.size(), text) == 0) dropped += std::stoul(line.substr(text.size()));
    }
    return dropped;
  }
  // A datagram that vanished is in none of these.
  std::uint64_t Accounted() const {
    return static_cast<std::uint64_t>(framesRead) + StateOfBoundPort(number).drops +
           FramesDropped();
  }
  struct Counts {
    std::uint64_t read, droppedBySystem, droppedByStream;
  };
  Counts Flood(int ahead);

  std::atomic<int> framesRead{0};
  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  TrackedThreads threads;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  TestClient client{server, manager};
  std::unique_ptr<StreamPeer> peer;
  UdpProgram program;
  const std::uint16_t number = FreeUdpPort();
};

// Sends them all, at most so many ahead of the device, and counts where they went.
OscPortTraffic::Counts OscPortTraffic::Flood(int ahead) {
  client.Ports().CreatePort(program.Port(), number, "127.0.0.1");
  peer->ReceiveFrame();  // the report
  // What the stream had to keep goes out on the thread that receives.
  std::thread receives([this] { client.RunToTheEnd(); });
  std::string frames;
  std::thread device([&] { frames = ReadAll(); });
  for (int i = 0; i < kDatagrams; ++i) {
    while (i - framesRead >= ahead && !HasFailure()) std::this_thread::yield();
    program.Send(number, DatagramNumber(i));
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (Accounted() < kDatagrams && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  const UdpSocketState state = StateOfBoundPort(number);
  EXPECT_EQ(state.address, "127.0.0.1");
  peer->EndSending();
  receives.join();
  device.join();
  const Counts counts{CountDatagrams(frames), state.drops, FramesDropped()};
  std::fprintf(stderr,
               "%d sent: %llu read by the device, %llu dropped by the system, %llu by the "
               "stream\n",
               kDatagrams, static_cast<unsigned long long>(counts.read),
               static_cast<unsigned long long>(counts.droppedBySystem),
               static_cast<unsigned long long>(counts.droppedByStream));
  return counts;
}

// How many the system drops depends on the machine; that the library drops none does not.
TEST_F(OscPortTraffic, EveryDatagramAtFullSpeedIsReadOrDroppedByTheSystem) {
  const Counts counts = Flood(kDatagrams);
  EXPECT_EQ(counts.read + counts.droppedBySystem, static_cast<std::uint64_t>(kDatagrams));
  EXPECT_EQ(counts.droppedByStream, 0u);
  EXPECT_GT(counts.read, 0u);
}

TEST_F(OscPortTraffic, NothingIsLostWhereTheDeviceKeepsPace) {
  const Counts counts = Flood(100);
  EXPECT_EQ(counts.read, static_cast<std::uint64_t>(kDatagrams));
  EXPECT_EQ(counts.droppedBySystem, 0u);
  EXPECT_EQ(counts.droppedByStream, 0u);
}

// --- the heap

// A client that notes what its ports' threads have taken from the heap after each packet.
class CountingOwner final : public LocalOSCPortDelegate {
 public:
  explicit CountingOwner(BaseClientThread& newClient) : client(newClient) {}
  void SendPacket(const void* data, std::uint64_t size) override {
    client.SendPacket(data, size);
    taken = allocations;
    ++packets;
  }
  void WaitFor(int count) const {
    while (packets < count) std::this_thread::yield();
  }

  std::atomic<int> packets{0};
  std::atomic<int> taken{0};

 private:
  BaseClientThread& client;
};

const std::string kSizes[] = {"", "short", std::string(1400, 'm'), std::string(60000, 'l')};

TEST_F(OscPortTraffic, ADatagramToTheDeviceTakesNothingFromTheHeap) {
  CountingOwner owner(client);
  LocalOSCPortTable table(owner);
  // A key that does not fit a small string.
  table.CreatePort(program.Port(), number, "127.100.100.100");
  owner.WaitFor(1);
  int sent = 1;
  const auto send = [&] {
    for (const std::string& bytes : kSizes) {
      program.Send(number, bytes);
      owner.WaitFor(++sent);
      peer->ReceiveSome();
    }
  };
  send();
  const int before = owner.taken;
  for (int i = 0; i < 20; ++i) send();
  EXPECT_EQ(owner.taken, before);
}

TEST_F(OscPortTraffic, ADatagramFromTheDeviceTakesNothingFromTheHeap) {
  const std::string host = "127.100.100.100";
  const auto port = client.Ports().CreatePort(program.Port(), number, host);
  while (port->status != 1) std::this_thread::yield();
  for (const std::string& bytes : kSizes) {
    const std::string packet =
        OscMessage("/osc", "sb", OscText(port->DestinationKey()) + OscBlobBytes(bytes));
    const std::string unknown = OscMessage(
        "/osc", "sb", OscText("no port has this key of many bytes") + OscBlobBytes(bytes));
    client.ProcessPacket(packet.data(), packet.size(), RemoteEndpoint{});
    const int before = allocations;
    for (int i = 0; i < 20; ++i) {
      client.ProcessPacket(packet.data(), packet.size(), RemoteEndpoint{});
      client.ProcessPacket(unknown.data(), unknown.size(), RemoteEndpoint{});
    }
    EXPECT_EQ(allocations, before) << bytes.size();
  }
}

}  // namespace
}  // namespace corvalint
