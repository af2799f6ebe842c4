// A device that stops reading in the middle of a large message and reads on later, at the shipped
// DLL. How long it sleeps does not matter, only that more is sent meanwhile than all buffers on the
// way hold; so the stalls last as long as that takes, a few seconds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "device/raw_time.h"
#include "harness/latencies.h"
#include "windows/support/bridge.h"
#include "windows/support/observers.h"
#include "windows/support/serving.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;

constexpr std::size_t kSysexSize = 65536;
constexpr std::uint64_t kRounds = 200;  // 13 MB
constexpr std::int64_t kPaceUs = 2000;
const std::vector<Bytes> kNotes{{0x90, 1, 2}, {0x90, 3, 4}, {0x90, 5, 6}};

std::vector<Bytes> Round() {
  Bytes sysex(kSysexSize, 0x55);
  sysex.front() = 0xF0;
  sysex.back() = 0xF7;
  std::vector<Bytes> messages{sysex};
  messages.insert(messages.end(), kNotes.begin(), kNotes.end());
  return messages;
}

// How long a note was on its way from its time stamp to the device, which reads the same counter.
std::int64_t WayOf(const device::ReceivedMessage& received, std::int64_t stamp) {
  constexpr std::int64_t kTurn = 1844674407371;  // of host time, which wraps
  const std::int64_t way = TickWindow::HostTimeAt(received.arrival / 100) - stamp;
  return way >= 0 ? way : way + kTurn;
}

// What 99 of 100 notes needed at most, in microseconds.
std::int64_t NinetyNineOfHundred(const PluggedDevice& plugged) {
  std::vector<std::int64_t> ways;
  for (const auto& received : plugged.App().Record().MessagesTo("/midi")) {
    const auto midi = device::AsMidi(received.message);
    if (midi && midi->data.size() == kNotes[0].size()) ways.push_back(WayOf(received, midi->time));
  }
  return harness::Percentile(ways, 99) / 1000;
}

// The counts in the log's lines about what was dropped.
std::vector<std::uint64_t> Losses(const std::string& log) {
  constexpr std::string_view kLead = "the device did not read: ";
  std::vector<std::uint64_t> losses;
  for (const LogLine& line : LinesOf(log)) {
    if (!line.message.starts_with(kLead)) continue;
    losses.push_back(std::stoull(line.message.substr(kLead.size())));
    EXPECT_EQ(line.level, "DEBUG");
    EXPECT_EQ(line.message, std::string(kLead) + std::to_string(losses.back()) + " frames dropped");
  }
  return losses;
}

std::vector<Bytes> FramesOf(const PluggedDevice& plugged) {
  return FramesTo(plugged.App(), "/midi");
}

// Whether `part` is `whole` with some elements left out.
bool IsWithout(const std::vector<Bytes>& part, const std::vector<Bytes>& whole) {
  auto at = whole.begin();
  for (const Bytes& frame : part) {
    at = std::find(at, whole.end(), frame);
    if (at == whole.end()) return false;
    ++at;
  }
  return true;
}

class Stall : public testing::Test {
 protected:
  static device::DeviceOptions Small() {
    device::DeviceOptions options;
    options.receiveBuffer = 4096;
    return options;
  }

  Stall() {
    reader = bridge.Plug("reader");
    sleeper = bridge.Plug("sleeper", Small());
    bridge.SwitchSourceOn("Keys");
  }

  void ClearRecords() {
    ASSERT_TRUE(reader->Flush() && sleeper->Flush());
    reader->App().Record().Clear();
    sleeper->App().Record().Clear();
  }

  std::uint64_t BytesRead() const { return sleeper->App().Record().Counters().bytesReceived; }

  // The first SysEx is half read when the sleeper stops.
  void FallAsleepInsideASysex() {
    constexpr std::size_t kSlowly = 200;  // bytes a millisecond, and none are saved up
    const std::uint64_t before = BytesRead();
    sleeper->App().SetReadRate(kSlowly);
    bridge.Inject("Keys", {Round()[0]});
    ASSERT_TRUE(sleeper->App().Record().WaitForCounters(
        [&](const auto& counters) { return counters.bytesReceived > before + kSysexSize / 8; },
        kPatience));
    sleeper->App().Stall();
    sleeper->App().SetReadRate(0);
    ASSERT_LT(BytesRead(), before + kSysexSize);
  }

  // Every message of the desktop reaches the reader while the sleeper sleeps.
  void PlayOn() {
    bridge.Inject("Keys", Round(), {.paceUs = kPaceUs, .repeat = kRounds});
    ASSERT_TRUE(reader->WaitForMidi(1 + kRounds * Round().size()));
  }

  bool WaitForLosses(std::size_t lines) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (Losses(bridge.GetDesk().Log()).size() < lines) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }

  void ExpectLoss(std::size_t stall, std::uint64_t grown) {
    const std::vector<std::uint64_t> losses = Losses(bridge.GetDesk().Log());
    ASSERT_EQ(losses.size(), stall);
    const std::vector<Bytes> sent = FramesOf(*reader);
    const std::vector<Bytes> received = FramesOf(*sleeper);
    EXPECT_GT(losses.back(), 0u);
    EXPECT_EQ(received.size() + losses.back(), sent.size());
    EXPECT_TRUE(IsWithout(received, sent));
    std::printf("stall %zu: sent %zu, received %zu, counted %llu, working set %llu KiB more\n",
                stall, sent.size(), received.size(), static_cast<unsigned long long>(losses.back()),
                static_cast<unsigned long long>(grown / 1024));
  }

  Bridge bridge{{"Keys"}, {}};
  std::unique_ptr<PluggedDevice> reader;
  std::unique_ptr<PluggedDevice> sleeper;
};

TEST_F(Stall, LosesWholeFramesOnlyIsCountedOnceAndDelaysNobody) {
  constexpr std::uint64_t kMostMemory = 4 * 1024 * 1024;  // for one that is sent 13 MB in vain
  ASSERT_NO_FATAL_FAILURE(ClearRecords());
  bridge.Inject("Keys", {Round()[0]});
  ASSERT_NO_FATAL_FAILURE(PlayOn());
  const std::int64_t undisturbed = NinetyNineOfHundred(*reader);
  ASSERT_TRUE(sleeper->WaitForMidi(1 + kRounds * Round().size()));

  for (std::size_t stall = 1; stall <= 2; ++stall) {
    ASSERT_NO_FATAL_FAILURE(ClearRecords());
    const std::uint64_t before = bridge.Control().Counts().workingSet;
    ASSERT_NO_FATAL_FAILURE(FallAsleepInsideASysex());
    ASSERT_NO_FATAL_FAILURE(PlayOn());
    const std::uint64_t after = bridge.Control().Counts().workingSet;
    const std::uint64_t grown = after > before ? after - before : 0;
    EXPECT_LT(grown, kMostMemory);
    EXPECT_EQ(Losses(bridge.GetDesk().Log()).size(), stall - 1) << "told before it was over";
    const std::int64_t disturbed = NinetyNineOfHundred(*reader);
    std::printf("p99 of notes to the other device: %lld us undisturbed, %lld us in stall %zu\n",
                static_cast<long long>(undisturbed), static_cast<long long>(disturbed), stall);

    sleeper->App().Resume();
    EXPECT_TRUE(WaitForLosses(stall));
    ASSERT_TRUE(sleeper->Flush());  // after the stall: everything that was kept has arrived
    ASSERT_NO_FATAL_FAILURE(ExpectLoss(stall, grown));
  }
  ExpectClean(bridge, {reader.get(), sleeper.get()});
}

}  // namespace
}  // namespace corvalint::windows_test
