// The shipped DLL with less around it than it would like: a device that does not read, a machine
// without the libraries that it looks for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "windows/support/bridge.h"
#include "windows/support/serving.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::IsEmpty;
using testing::SizeIs;

const Bytes kNoteOn{0x90, 0x3C, 0x64};
const Bytes kNoteOff{0x80, 0x3C, 0x00};

// How many frames the log says were dropped, over all devices.
std::uint64_t DroppedInLog(const std::string& log) {
  constexpr std::string_view kLead = "DEBUG the device did not read: ";
  std::uint64_t dropped = 0;
  for (std::size_t at = log.find(kLead); at != std::string::npos; at = log.find(kLead, at + 1)) {
    dropped += std::stoull(log.substr(at + kLead.size()));
  }
  return dropped;
}

// From one host time to a later one. Host time wraps once in 1845 seconds.
std::int64_t NanosecondsBetween(std::int64_t earlier, std::int64_t later) {
  constexpr std::int64_t kPeriod = 1844674407371;
  return later >= earlier ? later - earlier : later - earlier + kPeriod;
}

TEST(Hardship, ADeviceThatStopsReadingLosesWholeFramesAndDisturbsNobody) {
  constexpr std::size_t kSysexSize = 8000;
  constexpr std::uint64_t kMessages = 1500;          // more than all buffers on the way can hold
  constexpr std::int64_t kLongest = 60'000'000'000;  // that this test can take
  Bridge bridge({"Keys"}, {"Synth"});
  const auto reader = bridge.Plug("reader");
  device::DeviceOptions small;
  small.receiveBuffer = 4096;
  const auto sleeper = bridge.Plug("sleeper", small);
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
  ASSERT_TRUE(reader->Flush());
  ASSERT_TRUE(sleeper->Flush());
  reader->App().Record().Clear();
  sleeper->App().Record().Clear();
  const std::uint64_t before = sleeper->App().Record().Counters().messagesReceived;
  sleeper->App().Stall();

  Bytes sysex(kSysexSize, 0x55);
  sysex.front() = 0xF0;
  sysex.back() = 0xF7;
  bridge.Inject("Keys", {sysex}, {.paceUs = 200, .repeat = kMessages});
  ASSERT_TRUE(reader->App().Record().WaitForMessages(kMessages, kPatience));
  EXPECT_EQ(BytesOf(reader->Midi(), keys), std::vector<Bytes>(kMessages, sysex));
  // The sleeper, too, is told of both endpoints and of the note that no output takes.
  constexpr std::uint64_t kFramesMeanwhile = 3;
  ExpectServed(bridge, *reader, "Meanwhile", 81, "Synth", synth);
  EXPECT_EQ(DroppedInLog(bridge.GetDesk().Log()), 0u);  // told once it is over

  sleeper->App().Resume();
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("the device did not read", kPatience));
  ASSERT_TRUE(sleeper->Flush());  // one more message
  const std::uint64_t dropped = DroppedInLog(bridge.GetDesk().Log());
  const std::uint64_t received = sleeper->App().Record().Counters().messagesReceived - before - 1;
  EXPECT_GT(dropped, 0u);
  EXPECT_EQ(received + dropped, kMessages + kFramesMeanwhile);
  std::optional<std::int64_t> last;
  for (const auto& message : sleeper->Midi()) {
    if (message.id != keys) continue;
    EXPECT_EQ(message.data, sysex);
    EXPECT_LE(NanosecondsBetween(last.value_or(message.time), message.time), kLongest);
    last = message.time;
  }
  ExpectServed(bridge, *sleeper, "Awake", 91, "Synth", synth);
  ExpectClean(bridge, {reader.get(), sleeper.get()});
}

TEST(Hardship, AMachineWithoutAnyOfTheLibrariesIsServed) {
  harness::DeskOptions bare;
  bare.supportKey = bare.deviceKey = false;
  bare.asl = bare.coreFoundation = bare.mobileDevice = bare.virtualMidi = false;
  Bridge bridge({"Keys"}, {"Synth"}, bare);
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
  EXPECT_TRUE(bridge.Control().WaitForInputStarted(bridge.Input("Keys")));
  EXPECT_TRUE(bridge.Control().WaitForOutputOpen(bridge.Output("Synth")));
  bridge.Inject("Keys", {kNoteOn, {0xF0, 1, 2, 0xF7}, kNoteOff});
  EXPECT_EQ(bridge.GetHost().Clients(), 0);
  ASSERT_THAT(bridge.GetHost().Sources(), SizeIs(1));
  EXPECT_TRUE(bridge.GetHost().Sources()[0].on);
  ASSERT_THAT(bridge.GetHost().Destinations(), SizeIs(1));
  EXPECT_TRUE(bridge.GetHost().Destinations()[0].on);

  // The desktop is still looked at.
  const int late = bridge.Control().AddOutput("Late");
  EXPECT_TRUE(bridge.GetHost().WaitForDestination("Late", kPatience).has_value());
  bridge.Control().RemoveOutput(late);
  bridge.GetHost().ToggleSource(keys);
  bridge.GetHost().ToggleDestination(synth);
  EXPECT_TRUE(bridge.Control().WaitForInputClosed(bridge.Input("Keys")));
  EXPECT_TRUE(bridge.Control().WaitForOutputClosed(bridge.Output("Synth")));
  ExpectClean(bridge, {});
  EXPECT_EQ(bridge.GetHost().Quit(), 0);
}

TEST(Hardship, AMachineWithoutThePortDriverServesItsDevices) {
  harness::DeskOptions options;
  options.virtualMidi = false;
  Bridge bridge({"Keys"}, {"Synth"}, options);
  const auto a = bridge.Plug("device-a");
  const auto b = bridge.Plug("device-b");
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");

  ASSERT_TRUE(a->App().AnnounceSource("App", 7));
  ASSERT_TRUE(a->App().AnnounceDestination("App", 8));
  ASSERT_TRUE(b->WaitForAnnouncement("/add_remote_source", "App", 7));
  ASSERT_TRUE(b->WaitForAnnouncement("/add_remote_destination", "App", 8));
  EXPECT_THAT(bridge.Control().Ports(), IsEmpty());
  ASSERT_TRUE(a->App().SendMidi("App", 7, kNoteOn));
  ASSERT_TRUE(WaitForMidiOf(*b, 7, 1));
  ASSERT_TRUE(a->App().SendMidi("Synth", synth, kNoteOff));
  ASSERT_TRUE(bridge.Control().WaitForOutputMessages(bridge.Output("Synth"), 1));
  bridge.Inject("Keys", {kNoteOn});
  EXPECT_TRUE(WaitForMidiOf(*a, keys, 1));
  EXPECT_TRUE(WaitForMidiOf(*b, keys, 1));
  ASSERT_TRUE(a->App().WithdrawSource("App", 7));
  ASSERT_TRUE(a->App().WithdrawDestination("App", 8));
  EXPECT_TRUE(b->WaitForAnnouncement("/remove_remote_source", "App", 7));
  EXPECT_TRUE(b->WaitForAnnouncement("/remove_remote_destination", "App", 8));
  ExpectClean(bridge, {a.get(), b.get()});
}

}  // namespace
}  // namespace corvalint::windows_test
