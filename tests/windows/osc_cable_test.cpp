// Cables are pulled while loopback OSC ports of the shipped DLL are open and in use: afterwards the
// process holds what it held before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>

#include "windows/support/osc_leaks.h"
#include "windows/support/osc_ports.h"
#include "windows/support/serving.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::IsEmpty;

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
    ASSERT_EQ(UdpSocketOn(taken.Program().LastSender()).address, "127.0.0.1");
    ASSERT_THAT(plugged.App().Record().Violations(), IsEmpty());
  }

  // The cable is cut in the middle of what the device sends.
  void Pull(device::CutHow how) {
    plugged.App().Record().Clear();
    device::FrameBatch traffic;
    for (int i = 0; i < 20; ++i) traffic.AddPacket(DataPacket(open.DestinationKey(), {1, 2, 3}));
    ASSERT_TRUE(plugged.App().SendAndCut(traffic.Data(), traffic.Data().size() - 5, how));
  }
  // The program takes what still reached it. For a time when the ports have ended.
  void Drain() {
    while (open.Program().Receive(std::chrono::milliseconds(0))) {
    }
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
  static constexpr std::uint64_t kStretch =
      5;  // pulls of each device; the first one makes what stays
  static constexpr std::uint64_t kStretches = 6;
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
    ASSERT_TRUE(threads.WaitFor(kDevices * kPortsEach * stream))
        << "stream " << stream << ": " << threads.Seen() << " threads have ended; the log:\n"
        << bridge.GetDesk().Log();
    for (const auto& traveller : travellers) traveller->Drain();
  }
  Bridge bridge{{"Keys"}, {"Synth"}};
  EndedThreads threads{bridge};
  std::vector<std::unique_ptr<Traveller>> travellers;
};

TEST_F(OscCable, AThousandPullsWithOpenPortsAndTrafficLeaveNothingBehind) {
  std::vector<std::uint16_t> numbers;
  for (const auto& traveller : travellers) numbers.push_back(traveller->Number());
  ASSERT_NO_FATAL_FAILURE(AttachAll());
  std::vector<harness::ProcessCounts> counts;
  std::optional<Chatter> chatter(numbers);
  for (std::uint64_t stream = 1; stream <= kStretch * kStretches; ++stream) {
    ASSERT_NO_FATAL_FAILURE(PullAll(stream));
    if (stream % kStretch != 0) continue;
    chatter.reset();
    ASSERT_NO_FATAL_FAILURE(ExpectAllWork(stream + 1));
    counts.push_back(SettledCounts(bridge, threads, kDevices * kPortsEach * stream));
    chatter.emplace(numbers);
  }
  ExpectNothingLeft("1000 cable pulls of 40 devices with two open ports each", counts);
  ExpectClean(bridge, {});
}

// A departure stops the ports on the thread that tells of it. The cables of all but two devices are
// cut first, since the departure of a connected one takes a second.
TEST_F(OscCable, DeparturesWithOpenPortsLeaveNothingBehind) {
  constexpr std::size_t kConnected = 2;
  constexpr std::uint64_t kJourneys = 4;
  constexpr std::size_t kThreadsEach = kPortsEach + 1;  // those of the ports and the client's
  std::vector<std::uint16_t> numbers;
  for (const auto& traveller : travellers) numbers.push_back(traveller->Number());
  const Chatter chatter(numbers);
  std::vector<harness::ProcessCounts> counts;
  for (std::uint64_t journey = 1; journey <= kJourneys; ++journey) {
    ASSERT_NO_FATAL_FAILURE(AttachAll());
    ASSERT_NO_FATAL_FAILURE(ExpectAllWork(journey));
    for (std::size_t i = kConnected; i < kDevices; ++i) {
      travellers[i]->Device().App().RefuseConnections();  // should its detaching come late
      ASSERT_NO_FATAL_FAILURE(travellers[i]->Pull(device::CutHow::kReset));
    }
    const std::size_t endedBefore = kThreadsEach * kDevices * (journey - 1);
    ASSERT_TRUE(threads.WaitFor(endedBefore + kPortsEach * (kDevices - kConnected)));
    for (std::size_t i = kDevices; i-- > 0;) {
      bridge.Control().Detach(travellers[i]->Device().Name());
    }
    ASSERT_TRUE(bridge.Control().WaitForNotifications());
    counts.push_back(SettledCounts(bridge, threads, endedBefore + kThreadsEach * kDevices));
    for (const auto& traveller : travellers) {
      traveller->Drain();
      traveller->Device().App().AcceptConnections();
    }
  }
  ExpectNothingLeft("departures of 40 devices, four times", counts);
  EXPECT_EQ(bridge.GetHost().Clients(), 0);
  ExpectClean(bridge, {});
}

}  // namespace
}  // namespace corvalint::windows_test
