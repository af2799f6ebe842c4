// Ports that come and go a thousand times, alone and with their device, leave nothing behind.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ports/desktop_names.h"
#include "ports/local_osc_port_table.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_mobile_device.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/stream_peer.h"
#include "support/test_server.h"
#include "support/udp_program.h"
#include "usb/usb_client_thread.h"

namespace corvalint {
namespace {

using namespace test;

constexpr int kCycles = 1000;
const char kHost[] = "127.0.0.1";

std::ptrdiff_t EntriesOf(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return std::distance(begin(entries), end(entries));
}

// What this process has of the system.
struct Holdings {
  std::ptrdiff_t threads, descriptors;
};
Holdings HoldingsNow() { return {EntriesOf("/proc/self/task"), EntriesOf("/proc/self/fd")}; }

// The library's threads are detached: they are gone a moment after they have let go of everything.
void ExpectBackAt(const Holdings& before, const char* what) {
  Holdings after = HoldingsNow();
  for (int tries = 0; tries < 2000000 && after.threads > before.threads; ++tries) {
    std::this_thread::yield();
    after = HoldingsNow();
  }
  std::fprintf(stderr, "%d cycles of %s: threads %td before, %td after; descriptors %td, %td\n",
               kCycles, what, before.threads, after.threads, before.descriptors, after.descriptors);
  EXPECT_EQ(after.threads, before.threads);
  EXPECT_EQ(after.descriptors, before.descriptors);
}

// Sends datagrams to some ports of 127.0.0.1 until it is destroyed.
class Streaming {
 public:
  explicit Streaming(std::vector<std::uint16_t> ports)
      : thread([this, targets = std::move(ports)] {
          while (!ends) {
            for (const std::uint16_t port : targets) program.Send(port, "stream of the desktop");
          }
        }) {}
  ~Streaming() {
    ends = true;
    thread.join();
  }
  Streaming(const Streaming&) = delete;
  Streaming& operator=(const Streaming&) = delete;

 private:
  UdpProgram program;
  std::atomic<bool> ends{false};
  std::thread thread;
};

class SilentOwner final : public LocalOSCPortDelegate {
 public:
  void SendPacket(const void*, std::uint64_t) override { ++packets; }
  std::atomic<std::uint64_t> packets{0};
};

// Each cycle has a port that works and one whose number another program has.
TEST(OscPortCycles, CreatedAndRemovedPortsLeaveNothing) {
  FakeClock clock;
  ConsoleCapture console;
  const UdpProgram taken;
  const std::uint16_t number = FreeUdpPort();
  std::thread([] {}).join();  // a sanitizer may begin a thread of its own with the first one
  SilentOwner owner;
  const Holdings before = HoldingsNow();
  {
    const Streaming desktop({number});
    LocalOSCPortTable table(owner);
    for (int i = 0; i < kCycles; ++i) {
      const auto port = table.CreatePort(taken.Port(), number, kHost);
      const auto deaf = table.CreatePort(number, taken.Port(), kHost);
      ASSERT_EQ(table.Count(), 2u);
      if (i % 2 == 0) {
        while (port->status != 1 || deaf->status != 1) std::this_thread::yield();
        deaf->SendToDestination("device", 6);
      }
      table.RemovePort(port->DestinationKey());
      table.RemovePort(deaf->DestinationKey());
      if (i % 50 == 0)
        while (!taken.Silent()) taken.Receive();
    }
  }
  ExpectBackAt(before, "create and remove");
  EXPECT_GT(owner.packets, 0u);
  EXPECT_EQ(console.Take().size(), std::string("Finished\n").size() * 2 * kCycles);
}

class OscPortPulls : public testing::Test {
 protected:
  static std::string CreateMessage(std::uint16_t destinationPort, std::uint16_t bindPort) {
    return OscMessage("/osc/create_port", "iis",
                      OscInt32(destinationPort) + OscInt32(bindPort) + OscText(kHost));
  }
  void Arrive() {
    client = new UsbClientThread(server, device, manager);
    server.clients.Append(*client);
    client->Start();
  }
  void Depart() {
    ASSERT_TRUE(client->gate.TryBorrow());
    client->Stop();
    server.clients.Remove(*client);
    client->gate.Return();
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  FakeMobileDevice library;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  DeviceHandle device = library.AddDevice("pad", 0xAB);
  UsbClientThread* client = nullptr;
};

TEST_F(OscPortPulls, PulledDevicesLeaveNothing) {
  const UdpProgram taken;
  const std::uint16_t first = FreeUdpPort();
  const std::uint16_t second = FreeUdpPort();
  std::thread([] {}).join();
  const Holdings before = HoldingsNow();
  {
    const Streaming desktop({first, second});
    for (int i = 0; i < kCycles; ++i) {
      Arrive();
      const auto peer = library.NextStream(device);
      ASSERT_NE(peer, nullptr);
      peer->SendFrame(CreateMessage(7001, first));
      peer->SendFrame(CreateMessage(7002, taken.Port()));
      peer->SendFrame(CreateMessage(7003, second));
      // One is pulled while its ports are opened, another one while they stream.
      if (i % 2 == 0) {
        for (int frames = 0; frames < 6; ++frames) peer->ReceiveFrame();
      }
      Depart();
      console.Take();
      library.TakeCalls();
    }
  }
  ExpectBackAt(before, "cable pull");
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), kCycles);
}

}  // namespace
}  // namespace corvalint
