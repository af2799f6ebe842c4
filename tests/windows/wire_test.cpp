// The bytes that the shipped DLL sends to devices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/two_devices.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using device::EndpointId;
using harness::InputItem;
using testing::ElementsAre;
using testing::IsEmpty;

class Wire : public TwoDevices {};

TEST_F(Wire, MidiFromADesktopInput) {
  bridge->GetHost().ToggleSource(keys);
  TickWindow window(bridge->Control());
  bridge->Inject(kKeys, {{0x90, 0x3C, 0x64}});
  ASSERT_TRUE(a->WaitForMidi(1) && b->WaitForMidi(1));
  window.Close();
  const std::int64_t stamp = a->Midi().at(0).time;
  EXPECT_TRUE(window.Contains(stamp)) << stamp;
  EXPECT_THAT(FramesTo(a->App(), "/midi"),
              ElementsAre(MidiFrame(kKeys, keys, stamp, {0x90, 0x3C, 0x64})));
  EXPECT_EQ(FramesTo(a->App(), "/midi"), FramesTo(b->App(), "/midi"));
  bridge->GetHost().ToggleSource(keys);
}

TEST_F(Wire, LengthsOfShortInputFollowTheirStatus) {
  bridge->GetHost().ToggleSource(keys);
  const std::vector<Bytes> words{{0x80, 1, 2}, {0xBF, 3, 4}, {0xC0, 5, 0x11}, {0xDF, 6, 0x11},
                                 {0xE0, 7, 8}, {0xF1, 9, 1}, {0xF2, 10, 11},  {0xF3, 12, 1},
                                 {0xF6, 1, 1}, {0xF8, 1, 1}, {0x7F, 1, 1},    {0xFF, 1, 1}};
  std::vector<InputItem> items;
  for (const Bytes& word : words) items.push_back({InputItem::Kind::kShort, word});
  // Invalid short input is ignored, invalid long input is handed on.
  items.push_back({InputItem::Kind::kShortError, {0x90, 1, 2}});
  items.push_back({InputItem::Kind::kLongError, {0xF0, 1}});
  items.push_back({InputItem::Kind::kLong, {0xF0, 1, 2, 3, 0xF7}});
  bridge->Control().Inject(bridge->Input(kKeys), items);
  const std::vector<Bytes> expected{
      {0x80, 1, 2},         {0xBF, 3, 4}, {0xC0, 5}, {0xDF, 6}, {0xE0, 7, 8}, {0xF1, 9},
      {0xF2, 10, 11},       {0xF3, 12},   {0xF6},    {0xF8},    {0xFF},       {0xF0, 1},
      {0xF0, 1, 2, 3, 0xF7}};
  ASSERT_TRUE(a->WaitForMidi(expected.size()));
  ASSERT_TRUE(a->Flush());
  std::vector<Bytes> received;
  for (const auto& midi : a->Midi()) received.push_back(midi.data);
  EXPECT_EQ(received, expected);
  bridge->GetHost().ToggleSource(keys);
}

TEST_F(Wire, MidiThatAnApplicationWritesIntoAPort) {
  const harness::Port port = a->PublishDestination("Into A", -2);
  a->App().Record().Clear();
  TickWindow window(bridge->Control());
  const int job = bridge->Control().Play(port.id, {{0xB0, 1, 2}, {0xF0, 7, 0xF7}});
  ASSERT_TRUE(bridge->Control().WaitForJob(job).has_value());
  ASSERT_TRUE(a->WaitForMidi(2));
  window.Close();
  const auto midi = a->Midi();
  EXPECT_TRUE(window.Contains(midi.at(0).time));
  EXPECT_TRUE(window.Contains(midi.at(1).time));
  EXPECT_THAT(FramesTo(a->App(), "/midi"),
              ElementsAre(MidiFrame("Into A", -2, midi[0].time, {0xB0, 1, 2}),
                          MidiFrame("Into A", -2, midi[1].time, {0xF0, 7, 0xF7})));
  ASSERT_TRUE(b->Flush());
  EXPECT_THAT(FramesTo(b->App(), "/midi"), IsEmpty());
  ASSERT_TRUE(a->App().WithdrawDestination("Into A", -2) && a->Flush());
}

TEST_F(Wire, WhatIsWrittenIntoAPortWithoutADestinationIsDropped) {
  const harness::Port port = a->PublishSource("Out of A", 3);
  const int job = bridge->Control().Play(port.id, {{0xB0, 1, 2}});
  const auto result = bridge->Control().WaitForJob(job);
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->delivered, 1u);
  ASSERT_TRUE(a->Flush() && b->Flush());
  EXPECT_THAT(a->Midi(), IsEmpty());
  EXPECT_THAT(b->Midi(), IsEmpty());
  ASSERT_TRUE(a->App().WithdrawSource("Out of A", 3) && a->Flush());
}

TEST_F(Wire, MidiOfAnotherDeviceMovedIntoHostTime) {
  const std::int64_t offset = InitTiming(-kLateDeviceTime);
  ASSERT_TRUE(a->App().SendMidi("Relayed", 5, kLateDeviceTime, {0x90, 1, 2}));
  ASSERT_TRUE(a->App().SendMidi("Relayed", EndpointId("-6"), 1, {}));
  ASSERT_TRUE(b->WaitForMidi(2));
  EXPECT_THAT(FramesTo(b->App(), "/midi"),
              ElementsAre(MidiFrame("Relayed", 5, Wrapped(offset, kLateDeviceTime), {0x90, 1, 2}),
                          MidiFrame("Relayed", -6, Wrapped(offset, 1), {})));
  EXPECT_THAT(FramesTo(a->App(), "/midi"), IsEmpty());
}

TEST_F(Wire, MidiAfterALostStreamIsStillMovedIntoHostTime) {
  const std::int64_t offset = InitTiming(-kLateDeviceTime);
  const std::uint64_t streams = a->App().Record().Counters().streamsOpened;
  a->App().Cut(device::CutHow::kFinish);
  ASSERT_TRUE(a->App().WaitForStream(streams + 1, kPatience));
  ASSERT_TRUE(a->App().SendMidi("Relayed", 5, kLateDeviceTime, {0x90, 1, 2}));
  ASSERT_TRUE(b->WaitForMidi(1));
  EXPECT_THAT(FramesTo(b->App(), "/midi"),
              ElementsAre(MidiFrame("Relayed", 5, Wrapped(offset, kLateDeviceTime), {0x90, 1, 2})));
}

TEST_F(Wire, MidiIsRelayedUnchangedBeforeTheClocksAreAligned) {
  const auto c = bridge->Plug("never aligned");
  ASSERT_TRUE(c->App().SendMidi("Early", 5, kLateDeviceTime, {0xC0, 1}));
  ASSERT_TRUE(b->WaitForMidi(1));
  EXPECT_THAT(FramesTo(b->App(), "/midi"),
              ElementsAre(MidiFrame("Early", 5, kLateDeviceTime, {0xC0, 1})));
  c->Detach();
}

TEST_F(Wire, LargestFrameOfAll) {
  const std::int64_t offset = InitTiming(0);
  const Bytes midi(131032, 0xF7);
  const Bytes frame = MidiFrame("Long", 9, kLateDeviceTime, midi);
  ASSERT_EQ(frame.size(), device::kFrameHeaderSize + device::kLongestPayload);
  ASSERT_TRUE(a->App().SendRaw(frame));
  ASSERT_TRUE(b->WaitForMidi(1));
  EXPECT_EQ(FramesTo(b->App(), "/midi").at(0),
            MidiFrame("Long", 9, Wrapped(offset, kLateDeviceTime), midi));
}

TEST_F(Wire, RepliesToInitTiming) {
  for (const std::int64_t deviceTime :
       {std::int64_t{0}, kLateDeviceTime, std::int64_t{-1}, INT64_MIN, INT64_MAX}) {
    TickWindow window(bridge->Control());
    const std::int64_t offset = InitTiming(deviceTime);
    window.Close();
    EXPECT_TRUE(window.Contains(Wrapped(offset, deviceTime))) << deviceTime;
    EXPECT_THAT(FramesTo(a->App(), "/init_timing"),
                ElementsAre(Framed({OscText("/init_timing"), OscText(",hi"), BigEndian(offset),
                                    BigEndian(210u, 4)})));
  }
  EXPECT_THAT(FramesTo(b->App(), "/init_timing"), IsEmpty());
}

std::int64_t Smoothed(std::int64_t measured, std::int64_t old) {
  const double newPart = static_cast<double>(measured) * 0.7;
  const double oldPart = static_cast<double>(old) * 0.30000000000000004;
  return static_cast<std::int64_t>(newPart + oldPart);
}

TEST_F(Wire, RepliesToUpdateTimingAndWhatFollowsForMidi) {
  const std::int64_t deviceStart = 1000000000000;
  TickWindow initWindow(bridge->Control());
  const std::int64_t initOffset = InitTiming(deviceStart);
  initWindow.Close();
  const std::int64_t initHostTime = initOffset + deviceStart;
  ASSERT_TRUE(initWindow.Contains(initHostTime));

  std::int64_t clockOffset = initOffset;
  std::int64_t midiOffset = initOffset;
  for (std::int64_t step = 1; step <= 3; ++step) {
    const std::int64_t deviceTime = deviceStart + step * 5000000000;
    a->App().Record().Clear();
    TickWindow window(bridge->Control());
    ASSERT_TRUE(a->App().SendPacket(device::EncodeTiming("/update_timing", deviceTime)));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), "/update_timing", 1));
    window.Close();
    const auto reply = a->App().Record().MessagesTo("/update_timing").at(0).message;
    const auto newOffset = reply.Argument<std::int64_t>(1);
    const std::int64_t tick = window.Find(
        [&](std::int64_t now) { return Smoothed(now - deviceTime, clockOffset) == newOffset; });
    ASSERT_GE(tick, 0) << newOffset;
    const double ratio = static_cast<double>(initOffset - clockOffset) /
                         static_cast<double>(TickWindow::HostTimeAt(tick) - initHostTime);
    EXPECT_THAT(FramesTo(a->App(), "/update_timing"),
                ElementsAre(Framed({OscText("/update_timing"), OscText(",dh"),
                                    BigEndian(1.0 / (ratio + 1.0) - 1.0), BigEndian(newOffset)})));
    clockOffset = newOffset;
    midiOffset = Smoothed(clockOffset, midiOffset);
  }
  ASSERT_TRUE(a->App().SendMidi("Relayed", 5, deviceStart, {0xF8}));
  ASSERT_TRUE(b->WaitForMidi(1));
  EXPECT_THAT(FramesTo(b->App(), "/midi"),
              ElementsAre(MidiFrame("Relayed", 5, midiOffset + deviceStart, {0xF8})));
}

TEST_F(Wire, AnnouncementsOfDesktopEndpoints) {
  harness::Host& host = bridge->GetHost();
  host.ToggleSource(keys);
  host.ToggleDestination(synth);
  host.ToggleSource(keys);
  host.ToggleDestination(synth);
  ASSERT_TRUE(WaitForMessagesTo(a->App(), "/remove_remote_destination", 1));
  ASSERT_TRUE(b->Flush());
  for (const PluggedDevice* plugged : {a.get(), b.get()}) {
    std::vector<Bytes> frames;
    for (const auto& frame : plugged->App().Record().Frames()) frames.push_back(frame.bytes);
    ASSERT_GE(frames.size(), 4u);
    frames.resize(4);
    EXPECT_THAT(frames, ElementsAre(EndpointFrame("/add_remote_source", kKeys, keys),
                                    EndpointFrame("/add_remote_destination", "Synth", synth),
                                    EndpointFrame("/remove_remote_source", kKeys, keys),
                                    EndpointFrame("/remove_remote_destination", "Synth", synth)));
  }
}

TEST_F(Wire, AnnouncementsOfAnotherDevicesEndpoints) {
  device::SimulatedDevice& app = a->App();
  const std::string name = "\xE3\x81\x82 and more than thirty-one bytes";
  ASSERT_TRUE(app.AnnounceSource(name, 77) && app.AnnounceDestination(name, EndpointId("-42")));
  ASSERT_TRUE(app.WithdrawSource(name, 77) && app.WithdrawDestination(name, -42));
  ASSERT_TRUE(WaitForMessagesTo(b->App(), "/remove_remote_destination", 1));
  EXPECT_THAT(FramesTo(b->App(), "/add_remote_source"),
              ElementsAre(EndpointFrame("/add_remote_source", name, 77)));
  EXPECT_THAT(FramesTo(b->App(), "/add_remote_destination"),
              ElementsAre(EndpointFrame("/add_remote_destination", name, -42)));
  EXPECT_THAT(FramesTo(b->App(), "/remove_remote_source"),
              ElementsAre(EndpointFrame("/remove_remote_source", name, 77)));
  EXPECT_THAT(FramesTo(b->App(), "/remove_remote_destination"),
              ElementsAre(EndpointFrame("/remove_remote_destination", name, -42)));
  ASSERT_TRUE(a->Flush());
  EXPECT_EQ(a->App().Record().AllMessages().size(), 1u);  // the reply that Flush waits for
}

// A device that comes later is told of all that is there.
TEST_F(Wire, AnnouncementsOnConnecting) {
  ASSERT_TRUE(a->App().AnnounceSource("One", 1) && a->App().AnnounceDestination("One", 2) &&
              a->App().AnnounceSource("Two", 3) && a->Flush());
  bridge->GetHost().ToggleSource(keys);
  bridge->GetHost().ToggleDestination(synth);
  const auto c = bridge->Plug("late");
  ASSERT_TRUE(c->Flush());
  std::vector<Bytes> frames;
  for (const auto& frame : c->App().Record().Frames()) frames.push_back(frame.bytes);
  ASSERT_EQ(frames.size(), 6u);
  frames.pop_back();
  EXPECT_THAT(frames, ElementsAre(EndpointFrame("/add_remote_source", kKeys, keys),
                                  EndpointFrame("/add_remote_destination", "Synth", synth),
                                  EndpointFrame("/add_remote_source", "Two", 3),
                                  EndpointFrame("/add_remote_destination", "One", 2),
                                  EndpointFrame("/add_remote_source", "One", 1)));
  c->Detach();
  bridge->GetHost().ToggleSource(keys);
  bridge->GetHost().ToggleDestination(synth);
  ASSERT_TRUE(a->App().WithdrawSource("One", 1) && a->App().WithdrawDestination("One", 2) &&
              a->App().WithdrawSource("Two", 3) && a->Flush());
}

// The port is there all the same; only the message about it does not fit.
TEST_F(Wire, NamesThatFitNoAnnouncement) {
  const std::string longest(4067, 'l');
  ASSERT_TRUE(a->App().AnnounceSource(longest, 1));
  ASSERT_TRUE(WaitForMessagesTo(b->App(), "/add_remote_source", 1));
  EXPECT_EQ(FramesTo(b->App(), "/add_remote_source").at(0),
            EndpointFrame("/add_remote_source", longest, 1));
  const std::string longer(4068, 'm');
  ASSERT_TRUE(a->Flush());
  console.Restart();
  ASSERT_TRUE(a->App().AnnounceSource(longer, 2) && a->Flush());
  EXPECT_EQ(console.Text(), "receiving add_remote_source: " + longer +
                                " || 2\nError parsing message: out of buffer memory\n");
  console.Restart();
  ASSERT_TRUE(a->App().WithdrawSource("x", 2) && a->App().WithdrawSource("y", 1) && a->Flush());
  EXPECT_EQ(console.Text(),
            "receiving remove_remote_source: x || 2\n"
            "sending /remove_remote_source: x || 2 \n"
            "receiving remove_remote_source: y || 1\n"
            "sending /remove_remote_source: y || 1 \n");
  ASSERT_TRUE(b->Flush());
  EXPECT_EQ(FramesTo(b->App(), "/add_remote_source").size(), 1u);
}

}  // namespace
}  // namespace corvalint::windows_test
