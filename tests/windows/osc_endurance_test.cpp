// Loopback OSC ports of the shipped DLL that come and go, by request and by the cable: afterwards
// the process holds what it held before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <thread>

#include "windows/support/osc_ports.h"
#include "windows/support/serving.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::IsEmpty;

std::string Told(const harness::ProcessCounts& counts) {
  return std::to_string(counts.threads) + " threads, " + std::to_string(counts.handles) +
         " handles, " + std::to_string(counts.sockets) + " sockets";
}

bool Same(const harness::ProcessCounts& one, const harness::ProcessCounts& other) {
  return one.threads == other.threads && one.handles == other.handles &&
         one.sockets == other.sockets;
}

// Until so many threads of ports and clients in all have said that they end.
bool WaitForEnded(Bridge& bridge, std::size_t count) {
  const std::string line = "\nFinished\r\n";
  return bridge.GetHost().GetProcess().WaitForOutput(
      [&](const std::string& console) {
        std::size_t seen = 0;
        for (std::size_t at = console.find(line); at != std::string::npos;
             at = console.find(line, at + line.size() - 1)) {
          ++seen;
        }
        return seen >= count;
      },
      kPatience);
}

// What the process holds once so many threads have ended and three looks in a row found the same.
harness::ProcessCounts SettledCounts(Bridge& bridge, std::size_t ended) {
  constexpr std::chrono::milliseconds kBetweenLooks{200};
  if (!WaitForEnded(bridge, ended)) throw std::runtime_error("threads do not end");
  harness::ProcessCounts counts = bridge.Control().Counts();
  for (int same = 0; same < 2;) {
    std::this_thread::sleep_for(kBetweenLooks);
    const harness::ProcessCounts now = bridge.Control().Counts();
    same = Same(now, counts) ? same + 1 : 0;
    counts = now;
  }
  return counts;
}

void ExpectSame(const harness::ProcessCounts& before, const harness::ProcessCounts& after) {
  EXPECT_EQ(after.threads, before.threads);
  EXPECT_EQ(after.handles, before.handles);
  EXPECT_EQ(after.sockets, before.sockets);
}

TEST(OscEndurance, AThousandPortsOpenedUsedAndClosedLeaveNothingBehind) {
  constexpr std::size_t kWarmUp = 100;
  constexpr std::size_t kCycles = 1000;
  Bridge bridge({"Keys"}, {"Synth"});
  const auto app = bridge.Plug("device-a");
  std::vector<std::unique_ptr<OscPort>> ports;
  for (int i = 0; i < 10; ++i) ports.push_back(std::make_unique<OscPort>(*app));
  harness::ProcessCounts before;
  for (std::size_t cycle = 0; cycle < kWarmUp + kCycles; ++cycle) {
    if (cycle == kWarmUp) before = SettledCounts(bridge, cycle);
    app->App().Record().Clear();
    OscPort& port = *ports[cycle % ports.size()];
    ASSERT_TRUE(port.Create()) << cycle;
    ASSERT_TRUE(port.ToDevice(BigEndian(cycle, 4))) << cycle;
    ASSERT_TRUE(port.ToProgram(BigEndian(cycle, 8))) << cycle;
    ASSERT_TRUE(port.Remove()) << cycle;
  }
  const harness::ProcessCounts after = SettledCounts(bridge, kWarmUp + kCycles);
  std::cout << kCycles << " ports opened and closed: before " << Told(before) << "; after "
            << Told(after) << '\n';
  ExpectSame(before, after);
  ExpectClean(bridge, {app.get()});
}

// A device that opens two ports whenever it is connected, one of them with a number that is taken.
class Traveller {
 public:
  Traveller(Bridge& bridge, const std::string& name) : plugged(bridge.Control(), name) {
    device::FrameBatch greeting;
    greeting.AddPacket(open.CreateRequest());
    greeting.AddPacket(taken.CreateRequest());
    plugged.App().SetGreeting(greeting);
  }

  PluggedDevice& Device() { return plugged; }
  std::uint16_t Number() const { return open.Bind(); }

  // Returns when both ports of the stream with that number work.
  void ExpectPortsWork(std::uint64_t stream) {
    ASSERT_TRUE(plugged.App().WaitForStream(stream, kPatience));
    ASSERT_TRUE(Await([&] {
      const auto reports = plugged.App().Record().MessagesTo("/osc/port_creation_report");
      return std::count_if(reports.begin(), reports.end(),
                           [&](const auto& report) { return report.stream == stream; }) == 2;
    })) << plugged.Name()
        << ", stream " << stream;
    ASSERT_TRUE(open.ToDevice(BigEndian(stream, 8)));
    ASSERT_TRUE(open.ToProgram(BigEndian(stream, 4)));
    ASSERT_TRUE(taken.ToProgram(BigEndian(stream, 4)));
    // Still the one that the kernel has given the number to, and no socket for all networks.
    ASSERT_EQ(UdpSocketsOn(taken.Program().LastSender()).at(0).address, "127.0.0.1");
    ASSERT_THAT(plugged.App().Record().Violations(), IsEmpty());
  }

  // The cable is cut in the middle of what it sends. The programs forget what still reached them
  // once the library has seen it.
  void Pull(device::CutHow how) {
    device::FrameBatch traffic;
    for (int i = 0; i < 20; ++i) traffic.AddPacket(DataPacket(open.DestinationKey(), {1, 2, 3}));
    ASSERT_TRUE(plugged.App().SendAndCut(traffic.Data(), traffic.Data().size() - 5, how));
  }
  void Forget() {
    while (open.Program().Receive(std::chrono::milliseconds(0))) {
    }
    plugged.App().Record().Clear();
  }

 private:
  PluggedDevice plugged;
  UdpProgram holder;
  OscPort open{plugged};
  OscPort taken{plugged, holder.Port()};
};

// A program that sends to all ports all the time, whether or not they are there.
class Chatter {
 public:
  explicit Chatter(std::vector<std::uint16_t> targets)
      : thread([this, numbers = std::move(targets)] {
          const UdpProgram program;
          while (!done) {
            for (const std::uint16_t number : numbers) program.Send(number, Bytes(100, 0xCC));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
          }
        }) {}
  ~Chatter() {
    done = true;
    thread.join();
  }
  Chatter(const Chatter&) = delete;
  Chatter& operator=(const Chatter&) = delete;

 private:
  std::atomic<bool> done{false};
  std::thread thread;
};

class OscCable : public testing::Test {
 protected:
  static constexpr std::size_t kDevices = 40;
  static constexpr std::size_t kWarmUp = 3;  // pulls of each device
  static constexpr std::size_t kPulls = 25;
  static constexpr std::size_t kPortsEach = 2;

  OscCable() {
    for (std::size_t i = 0; i < kDevices; ++i) {
      travellers.push_back(std::make_unique<Traveller>(bridge, "traveller-" + std::to_string(i)));
    }
  }

  void AttachAll() {
    for (const auto& traveller : travellers) traveller->Device().Attach();
  }
  void ExpectAllWork(std::uint64_t stream) {
    for (const auto& traveller : travellers) {
      ASSERT_NO_FATAL_FAILURE(traveller->ExpectPortsWork(stream));
    }
  }
  // One pull of every cable, with traffic both ways.
  void PullAll(std::uint64_t stream) {
    ASSERT_NO_FATAL_FAILURE(ExpectAllWork(stream));
    for (std::size_t i = 0; i < kDevices; ++i) {
      const auto how = (i + stream) % 2 == 0 ? device::CutHow::kReset : device::CutHow::kFinish;
      ASSERT_NO_FATAL_FAILURE(travellers[i]->Pull(how));
    }
    ASSERT_TRUE(WaitForEnded(bridge, kDevices * kPortsEach * stream));
    for (const auto& traveller : travellers) traveller->Forget();
  }
  harness::ProcessCounts CountsWithAllPortsOpen(std::uint64_t stream) {
    ExpectAllWork(stream);
    return SettledCounts(bridge, kDevices * kPortsEach * (stream - 1));
  }

  Bridge bridge{{"Keys"}, {"Synth"}};
  std::vector<std::unique_ptr<Traveller>> travellers;
};

TEST_F(OscCable, AThousandPullsWithOpenPortsAndTrafficLeaveNothingBehind) {
  std::vector<std::uint16_t> numbers;
  for (const auto& traveller : travellers) numbers.push_back(traveller->Number());
  ASSERT_NO_FATAL_FAILURE(AttachAll());
  const Chatter chatter(numbers);
  std::uint64_t stream = 1;
  for (; stream <= kWarmUp; ++stream) ASSERT_NO_FATAL_FAILURE(PullAll(stream));
  const harness::ProcessCounts before = CountsWithAllPortsOpen(stream);
  for (; stream <= kWarmUp + kPulls; ++stream) ASSERT_NO_FATAL_FAILURE(PullAll(stream));
  const harness::ProcessCounts after = CountsWithAllPortsOpen(stream);
  std::cout << kDevices * kPulls << " cable pulls of " << kDevices << " devices with " << kPortsEach
            << " open ports each: before " << Told(before) << "; after " << Told(after) << '\n';
  ExpectSame(before, after);
  ExpectClean(bridge, {});
}

// A departure stops the ports on the thread that tells of it. The cables of all but two devices are
// cut first, since the departure of a connected one takes a second.
TEST_F(OscCable, DeparturesWithOpenPortsLeaveNothingBehind) {
  constexpr std::size_t kConnected = 2;
  constexpr std::uint64_t kMostJourneys = 5;
  constexpr std::size_t kThreadsEach = kPortsEach + 1;  // those of the ports and the client's
  std::vector<std::uint16_t> numbers;
  for (const auto& traveller : travellers) numbers.push_back(traveller->Number());
  const Chatter chatter(numbers);
  harness::ProcessCounts before;
  harness::ProcessCounts after{.handles = 1};  // anything but the same
  for (std::uint64_t journey = 1; journey <= kMostJourneys && !Same(before, after); ++journey) {
    ASSERT_NO_FATAL_FAILURE(AttachAll());
    ASSERT_NO_FATAL_FAILURE(ExpectAllWork(journey));
    for (std::size_t i = kConnected; i < kDevices; ++i) {
      travellers[i]->Device().App().RefuseConnections();  // should its detaching come late
      ASSERT_NO_FATAL_FAILURE(travellers[i]->Pull(device::CutHow::kReset));
    }
    const std::size_t endedBefore = kThreadsEach * kDevices * (journey - 1);
    ASSERT_TRUE(WaitForEnded(bridge, endedBefore + kPortsEach * (kDevices - kConnected)));
    for (std::size_t i = kDevices; i-- > 0;) {
      bridge.Control().Detach(travellers[i]->Device().Name());
    }
    ASSERT_TRUE(bridge.Control().WaitForNotifications());
    before = after;
    after = SettledCounts(bridge, endedBefore + kThreadsEach * kDevices);
    std::cout << "after " << kDevices * journey << " departures " << Told(after) << '\n';
    for (const auto& traveller : travellers) {
      traveller->Forget();
      traveller->Device().App().AcceptConnections();
    }
  }
  ExpectSame(before, after);
  EXPECT_EQ(bridge.GetHost().Clients(), 0);
  ExpectClean(bridge, {});
}

}  // namespace
}  // namespace corvalint::windows_test
