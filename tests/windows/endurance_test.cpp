// The shipped DLL keeps serving while things come, go, block and break around it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <thread>

#include "windows/support/bridge.h"
#include "windows/support/serving.h"
#include "windows/support/travellers.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using harness::InputItem;
using testing::IsEmpty;
using testing::SizeIs;

const Bytes kNoteOn{0x90, 0x3C, 0x64};
const Bytes kNoteOff{0x80, 0x3C, 0x00};

// Returns when the desktop was scanned so many more times. `input` is an input of the desktop,
// which each scan names on the console once it has looked at everything.
bool WaitForScans(Bridge& bridge, const std::string& input, std::size_t count) {
  const std::string line = "NOT a virtual source: " + input + "\r\n";
  const std::size_t before = CountOf(bridge.GetHost().Console(), line);
  return bridge.GetHost().GetProcess().WaitForOutput(
      [&](const std::string& console) { return CountOf(console, line) >= before + count; },
      kPatience);
}

// Announcements of one name that a device was sent, in order: address and id.
std::vector<std::pair<std::string, std::int32_t>> Announced(const PluggedDevice& plugged,
                                                            std::string_view name) {
  std::vector<std::pair<std::string, std::int32_t>> list;
  for (const auto& received : plugged.App().Record().AllMessages()) {
    const device::OscMessage& message = received.message;
    if (message.typeTags != "si" || message.Argument<std::string>(0) != name) continue;
    list.emplace_back(message.address, message.Argument<std::int32_t>(1));
  }
  return list;
}

TEST(Endurance, ADeviceIsServedAfterTwoScans) {
  Bridge bridge({"Keys"}, {"Synth"});
  const auto a = bridge.Plug("device-a");
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
  a->PublishSource("Before", 11);
  a->PublishDestination("Before in", 12);
  ASSERT_TRUE(WaitForScans(bridge, "Keys", 2));

  // A scan that had kept a lock would let none of these pass.
  ExpectServed(bridge, *a, "After", 21, "Synth", synth);
  bridge.Inject("Keys", {kNoteOn});
  EXPECT_TRUE(a->WaitForMidi(2));
  EXPECT_THAT(BytesOf(a->Midi(), keys), testing::ElementsAre(kNoteOn));
  ASSERT_TRUE(a->App().WithdrawSource("Before", 11));
  EXPECT_TRUE(a->Flush());
  // None of the library's own ports has become a desktop endpoint.
  EXPECT_THAT(bridge.GetHost().Sources(), SizeIs(1));
  EXPECT_THAT(bridge.GetHost().Destinations(), SizeIs(1));
  ExpectClean(bridge, {a.get()});
}

TEST(Endurance, AThousandTogglesWithADeviceConnected) {
  constexpr std::size_t kRounds = 250;  // of four toggles
  Bridge bridge({"Keys"}, {"Synth"});
  const auto a = bridge.Plug("device-a");
  ASSERT_TRUE(a->Flush());
  const std::int32_t keys = bridge.GetHost().WaitForSource("Keys", kPatience).value().id;
  const std::int32_t synth = bridge.GetHost().WaitForDestination("Synth", kPatience).value().id;
  for (std::size_t round = 0; round < 2 * kRounds; ++round) {
    bridge.GetHost().ToggleSource(keys);
    bridge.GetHost().ToggleDestination(synth);
  }
  bridge.GetHost().ToggleDestination(synth);
  ExpectServed(bridge, *a, "After", 31, "Synth", synth);

  const auto sources = Announced(*a, "Keys");
  ASSERT_THAT(sources, SizeIs(2 * kRounds));
  for (std::size_t i = 0; i < sources.size(); ++i) {
    EXPECT_EQ(sources[i].first, i % 2 == 0 ? "/add_remote_source" : "/remove_remote_source");
    EXPECT_EQ(sources[i].second, keys);
  }
  EXPECT_THAT(Announced(*a, "Synth"), SizeIs(2 * kRounds + 1));
  const auto counts = bridge.Control().Counts();
  EXPECT_EQ(counts.openInputs, 0u);
  EXPECT_EQ(counts.openOutputs, 1u);
  ExpectClean(bridge, {a.get()});
}

TEST(Endurance, AThousandUnroutedMessagesWhileAnotherDeviceChangesItsEndpoints) {
  constexpr int kRounds = 100;
  constexpr int kMessagesPerRound = 10;
  constexpr std::int32_t kNowhere = 999;
  Bridge bridge({"Keys"}, {"Synth"});
  const auto a = bridge.Plug("device-a");
  const auto b = bridge.Plug("device-b");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");

  std::vector<Bytes> sent;
  for (int round = 0; round < kRounds; ++round) {
    device::FrameBatch batch;
    for (int i = 0; i < kMessagesPerRound; ++i) {
      const auto number = static_cast<std::uint8_t>(sent.size() % 128);
      sent.push_back({0x90, number, static_cast<std::uint8_t>(sent.size() / 128)});
      batch.AddMidi("Nowhere", kNowhere, round, sent.back());
    }
    ASSERT_TRUE(a->App().SendBatch(batch));
    ASSERT_TRUE(b->App().AnnounceSource("Busy", 1000 + round));
    ASSERT_TRUE(b->App().AnnounceDestination("Busy", 2000 + round));
    ASSERT_TRUE(b->App().WithdrawSource("Busy", 1000 + round));
    ASSERT_TRUE(b->App().WithdrawDestination("Busy", 2000 + round));
  }
  ASSERT_TRUE(b->WaitForMidi(sent.size()));
  ASSERT_TRUE(b->Flush());
  ASSERT_TRUE(a->Flush());

  EXPECT_EQ(BytesOf(b->Midi(), kNowhere), sent);
  const auto announced = Announced(*a, "Busy");
  ASSERT_THAT(announced, SizeIs(4 * kRounds));
  for (std::size_t i = 0; i < announced.size(); i += 4) {
    const auto round = static_cast<std::int32_t>(i / 4);
    EXPECT_EQ(announced[i], std::pair(std::string("/add_remote_source"), 1000 + round));
    EXPECT_EQ(announced[i + 1], std::pair(std::string("/add_remote_destination"), 2000 + round));
    EXPECT_EQ(announced[i + 2], std::pair(std::string("/remove_remote_source"), 1000 + round));
    EXPECT_EQ(announced[i + 3], std::pair(std::string("/remove_remote_destination"), 2000 + round));
  }
  EXPECT_EQ(bridge.Control().Counts().openPorts, 0u);
  ExpectServed(bridge, *b, "After", 41, "Synth", synth);
  ExpectServed(bridge, *a, "Other", 51, "Synth", synth);
  ExpectClean(bridge, {a.get(), b.get()});
}

TEST(Endurance, KeyboardsAreUnpluggedWhileTheyPlay) {
  constexpr harness::Pacing kStream{.paceUs = 500, .repeat = 20000};
  const std::vector<InputItem> music{
      harness::ItemOf(kNoteOn), harness::ItemOf({0xF0, 1, 2, 3, 0xF7}), harness::ItemOf(kNoteOff)};
  Bridge bridge({"Keys", "Pads", "Spare"}, {"Synth"});
  const auto a = bridge.Plug("device-a");
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const std::int32_t pads = bridge.SwitchSourceOn("Pads");
  const std::int32_t spare = bridge.SwitchSourceOn("Spare");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
  bridge.Control().Inject(bridge.Input("Keys"), music, kStream);
  bridge.Control().Inject(bridge.Input("Pads"), music, kStream);
  ASSERT_TRUE(a->WaitForMidi(300));

  bridge.Control().RemoveInput(bridge.Input("Keys"));
  // A driver that answers nothing any more once its device is gone.
  bridge.Control().RemoveInput(bridge.Input("Pads"), harness::kNoDriver);
  EXPECT_TRUE(a->WaitForAnnouncement("/remove_remote_source", "Keys", keys));
  EXPECT_TRUE(a->WaitForAnnouncement("/remove_remote_source", "Pads", pads));
  EXPECT_TRUE(bridge.Control().WaitForInputClosed(bridge.Input("Keys")));
  EXPECT_THAT(BytesOf(a->Midi(), keys), testing::Contains(kNoteOn));
  EXPECT_THAT(BytesOf(a->Midi(), pads), testing::Contains(kNoteOn));

  bridge.Inject("Spare", {kNoteOn, kNoteOff});
  EXPECT_TRUE(WaitForMidiOf(*a, spare, 2, kAtOnce));
  EXPECT_THAT(bridge.GetHost().Sources(), SizeIs(1));
  ExpectServed(bridge, *a, "After", 61, "Synth", synth);
  ExpectClean(bridge, {a.get()});
}

TEST(Endurance, ADesktopProgramPlaysIntoAPortThatItsDeviceRemoves) {
  constexpr int kRounds = 20;
  Bridge bridge({"Keys"}, {"Synth"});
  const auto a = bridge.Plug("device-a");
  const std::int32_t synth = bridge.SwitchDestinationOn("Synth");
  for (std::int32_t round = 0; round < kRounds; ++round) {
    const auto port = a->PublishDestination("Lead", round);
    const int job = bridge.Control().Play(port.id, {kNoteOn, kNoteOff}, {.repeat = 1000000});
    ASSERT_TRUE(a->WaitForMidi(20));
    ASSERT_TRUE(a->App().WithdrawDestination("Lead", round));
    ASSERT_TRUE(bridge.Control().WaitForPortClosed(port.id, kPatience));
    ASSERT_TRUE(bridge.Control().WaitForJob(job, kPatience).has_value());
    ASSERT_TRUE(a->Flush());
    for (const auto& message : a->Midi()) ASSERT_EQ(message.id, round);
    a->App().Record().Clear();
  }
  ExpectServed(bridge, *a, "After", 71, "Synth", synth);
  ExpectClean(bridge, {a.get()});
}

// What the process holds after so many departures, once each client has ended and three looks in a
// row found the same.
harness::ProcessCounts SettledCounts(Bridge& bridge, std::size_t departures) {
  constexpr std::chrono::milliseconds kBetweenLooks{200};
  const auto end = std::chrono::steady_clock::now() + kPatience;
  harness::ProcessCounts counts = bridge.Control().Counts();
  for (int same = 0; same < 2;) {
    if (std::chrono::steady_clock::now() > end) throw std::runtime_error("counts do not settle");
    std::this_thread::sleep_for(kBetweenLooks);
    const harness::ProcessCounts now = bridge.Control().Counts();
    const bool allEnded = CountOf(bridge.GetDesk().Log(), "DEBUG ~BaseClientThread") == departures;
    same = allEnded && SameCounts(now, counts) ? same + 1 : 0;
    counts = now;
  }
  return counts;
}

// A lock may make a kernel object when two threads first meet at it, so a stretch may end with a
// handle more than it began with. What leaks shows in every stretch.
TEST(Endurance, AHundredArrivalsAndDeparturesLeaveNothingBehind) {
  constexpr std::size_t kDevices = 10;
  constexpr int kJourneys = 10;
  constexpr int kStretches = 3;
  Bridge bridge({"Keys"}, {"Synth"});
  bridge.SwitchSourceOn("Keys");
  Travellers travellers(bridge, kDevices, bridge.SwitchDestinationOn("Synth"));
  // The first journeys make what stays: managers, ports, and most of the locks' objects.
  for (int i = 0; i < 3; ++i) ASSERT_NO_FATAL_FAILURE(travellers.Journey());
  harness::ProcessCounts before;
  harness::ProcessCounts after = SettledCounts(bridge, travellers.Departures());
  for (int stretch = 0; stretch < kStretches && !SameCounts(before, after); ++stretch) {
    before = after;
    for (int i = 0; i < kJourneys; ++i) {
      ASSERT_NO_FATAL_FAILURE(travellers.Journey());
      bridge.Control().ClearCalls();
    }
    after = SettledCounts(bridge, travellers.Departures());
    std::cout << "before " << Told(before) << "; after " << Told(after) << '\n';
  }
  EXPECT_EQ(after.threads, before.threads);
  EXPECT_EQ(after.handles, before.handles);
  EXPECT_EQ(after.sockets, before.sockets);
  EXPECT_EQ(after.openPorts, kDevices);
  EXPECT_EQ(bridge.GetHost().Clients(), 0);
  ExpectClean(bridge, {});
}

}  // namespace
}  // namespace corvalint::windows_test
