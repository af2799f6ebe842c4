// What the shipped DLL does with the desktop's own MIDI devices when they come, move and end in
// the middle of something.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using harness::CallEntry;
using harness::InputItem;
using testing::ElementsAre;
using testing::IsEmpty;

// The low half of a time, with which ids are made.
std::uint32_t LowHalf(std::int64_t nanoseconds) { return static_cast<std::uint32_t>(nanoseconds); }

// The devices come while a scan has only just begun.
TEST(DesktopDevices, NewOnesGetIdsFromTheCounterAndTheirNumbers) {
  Bridge bridge({"Keys"}, {"Synth"});
  harness::DeskControl& control = bridge.Control();
  ASSERT_TRUE(bridge.GetHost().WaitForSource("Keys", kPatience).has_value());
  control.Hold("midiOutGetNumDevs");
  ASSERT_TRUE(control.WaitForHeld("midiOutGetNumDevs"));
  control.AddInput("Pad");
  control.AddOutput("Organ");
  TickWindow window(control);
  control.Release("midiOutGetNumDevs");
  const auto pad = bridge.GetHost().WaitForSource("Pad", kPatience);
  const auto organ = bridge.GetHost().WaitForDestination("Organ", kPatience);
  window.Close();
  ASSERT_TRUE(pad.has_value() && organ.has_value());
  EXPECT_GE(window.Find([&](std::int64_t now) {
    return 1 - LowHalf(now) == static_cast<std::uint32_t>(pad->id);
  }),
            0)
      << pad->id;
  EXPECT_GE(window.Find([&](std::int64_t now) {
    return LowHalf(now) + 1 == static_cast<std::uint32_t>(organ->id);
  }),
            0)
      << organ->id;
}

// Between two scans winmm's numbers may have moved. Nobody else's device is opened then.
TEST(DesktopDevices, ThoseWhoseNumbersMovedAreNotMistakenForOthers) {
  Bridge bridge({"Keys"}, {"Synth"});
  harness::DeskControl& control = bridge.Control();
  harness::Host& host = bridge.GetHost();
  const auto keys = host.WaitForSource("Keys", kPatience).value();
  const auto synth = host.WaitForDestination("Synth", kPatience).value();
  control.AddInput("New in", 0);
  control.AddOutput("New out", 0);
  control.ClearCalls();
  host.ToggleSource(keys.id);
  host.ToggleDestination(synth.id);
  // Empty, unless a scan came just now and told the new numbers.
  for (const CallEntry& open : CallsTo(control, {"midiInOpen", "midiOutOpen"})) {
    EXPECT_EQ(open.arguments.at(0), 1u) << open.function;
  }
  const auto sources = host.Sources();
  const auto destinations = host.Destinations();
  ASSERT_FALSE(sources.empty() || destinations.empty());
  EXPECT_EQ(sources[0].on, sources[0].available);
  EXPECT_EQ(destinations[0].on, destinations[0].available);

  ASSERT_TRUE(host.WaitForSource("New in", kPatience).has_value());
  ASSERT_TRUE(host.WaitForDestination("New out", kPatience).has_value());
  if (!sources[0].on) host.ToggleSource(keys.id);
  if (!destinations[0].on) host.ToggleDestination(synth.id);
  EXPECT_TRUE(control.WaitForInputStarted(bridge.Input("Keys")));
  EXPECT_TRUE(control.WaitForOutputOpen(bridge.Output("Synth")));
  EXPECT_EQ(control.Counts().openInputs, 1u);
  EXPECT_EQ(control.Counts().openOutputs, 1u);
}

// The reset gives its bytes back. They are handed on, but the buffer is not queued again: with it
// the driver would not close.
TEST(DesktopDevices, AMessageThatIsCutShortByTheCloseIsHandedOnAndTheDeviceCloses) {
  Bridge bridge({"Keys"});
  harness::DeskControl& control = bridge.Control();
  const auto a = bridge.Plug("device-a");
  const std::int32_t keys = bridge.SwitchSourceOn("Keys");
  const Bytes begun{0xF0, 0x7D, 0x01};
  const int job = control.Inject(bridge.Input("Keys"), {{InputItem::Kind::kPartial, begun}});
  ASSERT_TRUE(control.WaitForJob(job).has_value());
  control.ClearCalls();
  bridge.GetHost().ToggleSource(keys);
  EXPECT_THAT(
      NamesOf(CallsTo(control, {"midiInStop", "midiInReset", "midiInUnprepareHeader", "midiInClose",
                                "midiInAddBuffer", "midiInPrepareHeader"})),
      ElementsAre("midiInStop", "midiInReset", "midiInUnprepareHeader", "midiInUnprepareHeader",
                  "midiInUnprepareHeader", "midiInUnprepareHeader", "midiInClose"));
  EXPECT_EQ(control.Counts().openInputs, 0u);
  ASSERT_TRUE(a->WaitForMidi(1));
  ASSERT_TRUE(a->Flush());
  const auto midi = a->Midi();
  ASSERT_EQ(midi.size(), 1u);
  EXPECT_EQ(midi[0].data, begun);
  EXPECT_THAT(control.Violations(), IsEmpty());
}

}  // namespace
}  // namespace corvalint::windows_test
