// Where MIDI and announcements go, through the shipped DLL. All tests share one desk with two
// devices and use endpoint names and ids of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "windows/support/two_playing_devices.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using device::MidiMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Bytes kNoteOn{0x90, 0x3C, 0x64};
const Bytes kNoteOff{0x80, 0x3C, 0x00};
const Bytes kSysex{0xF0, 0x7D, 0x01, 0x02, 0x03, 0x04, 0xF7};

// An announcement as one line.
std::string LineOf(const device::OscMessage& message) {
  return message.address + " " + message.Argument<std::string>(0) + " " +
         std::to_string(message.Argument<std::int32_t>(1));
}

class Routing : public TwoPlayingDevices {
 protected:
  static void SetUpTestSuite() { Begin("Keys", {"Synth", "Idle"}); }

  // The four kinds of announcement that a device was sent, in order.
  static std::vector<std::string> Announcements(const PluggedDevice& plugged) {
    std::vector<std::string> lines;
    for (const auto& received : plugged.App().Record().AllMessages()) {
      if (received.message.typeTags == "si") lines.push_back(LineOf(received.message));
    }
    return lines;
  }

  static std::vector<Bytes> OutputBytes(std::string_view name) {
    return BytesOf(bridge->Control().OutputMessages(bridge->Output(name)));
  }
  static std::vector<Bytes> PortBytes(int port) {
    return BytesOf(bridge->Control().PortMessages(port));
  }

  // A desktop program plays into a port; returns when the library has handed on all of it.
  static void PlayInto(int port, const std::vector<Bytes>& messages) {
    const auto result = bridge->Control().WaitForJob(bridge->Control().Play(port, messages));
    ASSERT_TRUE(result.has_value());
    ASSERT_EQ(result->delivered, messages.size());
  }
};

TEST_F(Routing, InputGoesToEveryDeviceWithOneTimeStamp) {
  bridge->Inject("Keys", {kNoteOn, kSysex, {0xC5, 0x07}});
  for (const auto* plugged : {a.get(), b.get()}) {
    ASSERT_TRUE(plugged->WaitForMidi(3));
    const auto midi = plugged->Midi();
    ASSERT_THAT(midi, SizeIs(3));
    for (const MidiMessage& message : midi) {
      EXPECT_EQ(message.name, "Keys");
      EXPECT_EQ(message.id, keys);
    }
    EXPECT_EQ(midi[0].data, kNoteOn);
    EXPECT_EQ(midi[1].data, kSysex);
    EXPECT_EQ(midi[2].data, (Bytes{0xC5, 0x07}));
  }
  EXPECT_EQ(a->Midi(), b->Midi());
}

TEST_F(Routing, AnnouncementsReachTheOtherDeviceOnly) {
  a->PublishSource("Pad", 101);
  a->PublishDestination("Drums", 102);
  ASSERT_TRUE(a->App().WithdrawSource("Pad", 101));
  ASSERT_TRUE(a->App().WithdrawDestination("Drums", 102));
  Settle();
  EXPECT_THAT(Announcements(*b),
              ElementsAre("/add_remote_source Pad 101", "/add_remote_destination Drums 102",
                          "/remove_remote_source Pad 101", "/remove_remote_destination Drums 102"));
  EXPECT_THAT(Announcements(*a), IsEmpty());
}

TEST_F(Routing, AnIdThatIsPublishedAlreadyIsNotAnnouncedAgain) {
  const auto port = a->PublishSource("Twice", 111);
  const std::size_t ports = bridge->Control().Ports().size();
  ASSERT_TRUE(a->App().AnnounceSource("Twice", 111));
  ASSERT_TRUE(a->App().AnnounceSource("Another name", 111));
  Settle();
  EXPECT_THAT(Announcements(*b), ElementsAre("/add_remote_source Twice 111"));
  EXPECT_EQ(bridge->Control().Ports().size(), ports);
  ASSERT_TRUE(a->App().WithdrawSource("Twice", 111));
  EXPECT_TRUE(bridge->Control().WaitForPortClosed(port.id));
}

TEST_F(Routing, SourceAndDestinationOfOneNameShareAPortThatClosesWithTheLastOfThem) {
  const auto port = a->PublishSource("Both", 121);
  const std::size_t ports = bridge->Control().Ports().size();
  ASSERT_TRUE(a->App().AnnounceDestination("Both", 122));
  Settle();
  EXPECT_EQ(bridge->Control().Ports().size(), ports);

  ASSERT_TRUE(a->App().SendMidi("Both", 121, kNoteOn));
  Settle();
  EXPECT_THAT(PortBytes(port.id), ElementsAre(kNoteOn));
  PlayInto(port.id, {kNoteOff});
  ASSERT_TRUE(a->WaitForMidi(1));
  EXPECT_EQ(a->Midi()[0].id, 122);

  ASSERT_TRUE(a->App().WithdrawSource("Both", 121));
  Settle();
  EXPECT_TRUE(bridge->Control().Ports()[static_cast<std::size_t>(port.id) - 1].open);
  ASSERT_TRUE(a->App().WithdrawDestination("Both", 122));
  EXPECT_TRUE(bridge->Control().WaitForPortClosed(port.id));
}

TEST_F(Routing, ADesktopSwitchIsToldToEveryDevice) {
  const std::int32_t id = bridge->SwitchDestinationOn("Idle");
  bridge->GetHost().ToggleDestination(id);
  Settle();
  const std::string end = " Idle " + std::to_string(id);
  for (const auto* plugged : {a.get(), b.get()}) {
    EXPECT_THAT(Announcements(*plugged),
                ElementsAre("/add_remote_destination" + end, "/remove_remote_destination" + end));
  }
}

TEST_F(Routing, WhatIsWrittenIntoAPortReachesItsOwnerOnly) {
  const auto port = a->PublishDestination("Lead", 131);
  PlayInto(port.id, {kNoteOn, kSysex, kNoteOff});
  ASSERT_TRUE(a->WaitForMidi(3));
  Settle();
  const auto midi = a->Midi();
  ASSERT_THAT(midi, SizeIs(3));
  for (const MidiMessage& message : midi) {
    EXPECT_EQ(message.name, "Lead");
    EXPECT_EQ(message.id, 131);
  }
  EXPECT_EQ(midi[0].data, kNoteOn);
  EXPECT_EQ(midi[1].data, kSysex);
  EXPECT_EQ(midi[2].data, kNoteOff);
  EXPECT_THAT(b->Midi(), IsEmpty());
}

// What belongs to whom is not a matter of names.
TEST_F(Routing, EndpointsOfOneNameBelongToTheirOwnDevices) {
  const auto port = a->PublishDestination("Namesake", 135);
  ASSERT_TRUE(b->App().AnnounceDestination("Namesake", 136));
  ASSERT_TRUE(a->WaitForAnnouncement("/add_remote_destination", "Namesake", 136));
  PlayInto(port.id, {kNoteOn});
  ASSERT_TRUE(a->WaitForMidi(1));
  Settle();
  EXPECT_EQ(a->Midi().at(0).id, 135);
  EXPECT_THAT(b->Midi(), IsEmpty());
  EXPECT_THAT(Announcements(*a), ElementsAre("/add_remote_destination Namesake 136"));
  EXPECT_THAT(Announcements(*b), ElementsAre("/add_remote_destination Namesake 135"));
  ASSERT_TRUE(a->App().WithdrawDestination("Namesake", 135));
  ASSERT_TRUE(b->App().WithdrawDestination("Namesake", 136));
  EXPECT_TRUE(bridge->Control().WaitForPortClosed(port.id));
}

TEST_F(Routing, WhatIsWrittenIntoAPortWithoutADestinationReachesNobody) {
  const auto port = a->PublishSource("Only out", 141);
  PlayInto(port.id, {kNoteOn});
  Settle();
  EXPECT_THAT(a->Midi(), IsEmpty());
  EXPECT_THAT(b->Midi(), IsEmpty());
}

TEST_F(Routing, DeviceReachesADesktopOutputAndNoOtherDevice) {
  ASSERT_TRUE(a->App().SendMidi("Synth", synth, kNoteOn));
  ASSERT_TRUE(a->App().SendMidi("Any name", synth, kSysex));  // the id alone decides
  Settle();
  EXPECT_THAT(OutputBytes("Synth"), ElementsAre(kNoteOn, kSysex));
  EXPECT_THAT(OutputBytes("Idle"), IsEmpty());
  EXPECT_THAT(b->Midi(), IsEmpty());
  EXPECT_THAT(a->Midi(), IsEmpty());
}

TEST_F(Routing, DeviceReachesItsOwnPortAndTheOtherDevices) {
  const auto port = a->PublishSource("App", 151);
  ASSERT_TRUE(a->App().SendMidi("App", 151, kNoteOn));
  Settle();
  EXPECT_THAT(PortBytes(port.id), ElementsAre(kNoteOn));
  const auto relayed = b->Midi();
  ASSERT_THAT(relayed, SizeIs(1));
  EXPECT_EQ(relayed[0].name, "App");
  EXPECT_EQ(relayed[0].id, 151);
  EXPECT_EQ(relayed[0].data, kNoteOn);
  EXPECT_THAT(a->Midi(), IsEmpty());
}

TEST_F(Routing, AnotherDevicesPortIsNotWrittenTo) {
  const auto port = a->PublishSource("Private", 161);
  ASSERT_TRUE(b->App().SendMidi("Private", 161, kNoteOn));
  Settle();
  EXPECT_THAT(PortBytes(port.id), IsEmpty());
  EXPECT_THAT(a->Midi(), SizeIs(1));
}

TEST_F(Routing, PortComesFirstThenTheOutputAndNothingIsRelayedWhenAnOutputHasTheId) {
  const auto port = a->PublishSource("Same id", synth);
  bridge->Control().ClearCalls();
  ASSERT_TRUE(a->App().SendMidi("Same id", synth, kNoteOn));
  Settle();
  EXPECT_THAT(PortBytes(port.id), ElementsAre(kNoteOn));
  EXPECT_THAT(OutputBytes("Synth"), ElementsAre(kNoteOn));
  EXPECT_THAT(b->Midi(), IsEmpty());

  const std::set<std::string> sending{"virtualMIDISendData", "midiOutPrepareHeader",
                                      "midiOutLongMsg", "midiOutUnprepareHeader"};
  std::vector<std::string> calls;
  for (const std::string& name : bridge->Control().CallNames()) {
    if (sending.contains(name)) calls.push_back(name);
  }
  EXPECT_THAT(calls, ElementsAre("virtualMIDISendData", "midiOutPrepareHeader", "midiOutLongMsg",
                                 "midiOutUnprepareHeader"));
  ASSERT_TRUE(a->App().WithdrawSource("Same id", synth));
  EXPECT_TRUE(bridge->Control().WaitForPortClosed(port.id));
}

TEST_F(Routing, ManyMessagesToManyPlacesKeepTheirOrder) {
  const auto port = a->PublishSource("Mixed", 171);
  constexpr int kRounds = 200;
  std::vector<Bytes> toPort;
  std::vector<Bytes> toOutput;
  device::FrameBatch batch;
  for (int i = 0; i < kRounds; ++i) {
    const auto number = static_cast<std::uint8_t>(i % 128);
    toPort.push_back({0x90, number, static_cast<std::uint8_t>(i / 128)});
    toOutput.push_back({0x80, number, static_cast<std::uint8_t>(i / 128)});
    batch.AddMidi("Mixed", 171, i, toPort.back());
    batch.AddMidi("Synth", synth, i, toOutput.back());
  }
  ASSERT_TRUE(a->App().SendBatch(batch));
  Settle();
  EXPECT_EQ(PortBytes(port.id), toPort);
  EXPECT_EQ(OutputBytes("Synth"), toOutput);
  std::vector<Bytes> relayed;
  for (const MidiMessage& message : b->Midi()) relayed.push_back(message.data);
  EXPECT_EQ(relayed, toPort);
}

// The clock offset that a timing reply carries.
std::int64_t OffsetOf(const PluggedDevice& plugged, const std::string& address) {
  const auto replies = plugged.App().Record().MessagesTo(address);
  if (replies.empty()) throw std::runtime_error("no reply " + address);
  const device::OscMessage& reply = replies.back().message;
  return reply.Argument<std::int64_t>(address == "/init_timing" ? 0 : 1);
}

TEST_F(Routing, RelayedMidiCarriesTheSendersTimeMovedIntoHostTime) {
  a->App().SetClock(std::chrono::hours(-3));
  ASSERT_TRUE(a->App().AlignClockAndWait(0, kPatience));
  const std::int64_t first = OffsetOf(*a, "/init_timing");
  constexpr std::int64_t kDeviceTime = 123456789012345;
  ASSERT_TRUE(a->App().SendMidi("Relay", 181, kDeviceTime, kNoteOn));
  ASSERT_TRUE(b->WaitForMidi(1));
  EXPECT_EQ(b->Midi()[0].time, kDeviceTime + first);

  a->App().SetClock(std::chrono::hours(-3) + std::chrono::seconds(1));
  ASSERT_TRUE(a->App().UpdateTiming());
  ASSERT_TRUE(a->App().SendMidi("Relay", 181, kDeviceTime, kNoteOff));
  ASSERT_TRUE(b->WaitForMidi(2));
  // B's app may have read its note before A's has read the reply that was sent before it.
  ASSERT_TRUE(WaitForMessagesTo(a->App(), "/update_timing", 1));
  const std::int64_t second = OffsetOf(*a, "/update_timing");
  EXPECT_NE(second, first);
  const auto smoothed = static_cast<std::int64_t>(static_cast<double>(second) * 0.7 +
                                                  static_cast<double>(first) * 0.30000000000000004);
  EXPECT_EQ(b->Midi()[1].time, kDeviceTime + smoothed);
  EXPECT_EQ(b->Midi()[1].data, kNoteOff);
  a->App().SetClock(std::chrono::nanoseconds(0));
}

TEST_F(Routing, AnArrivingDeviceIsToldOfAllThatExists) {
  a->PublishSource("From A", 191);
  a->PublishDestination("Into A", 192);
  b->PublishSource("From B", 193);
  const auto c = bridge->Plug("device-c");
  ASSERT_TRUE(c->WaitForAnnouncement("/add_remote_source", "From B", 193));
  ASSERT_TRUE(c->Flush());
  const auto lines = Announcements(*c);
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(lines[0], "/add_remote_source Keys " + std::to_string(keys));
  EXPECT_EQ(lines[1], "/add_remote_destination Synth " + std::to_string(synth));
  for (const char* line : {"/add_remote_source From A 191", "/add_remote_destination Into A 192",
                           "/add_remote_source From B 193"}) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
  }
  c->Detach();
}

TEST_F(Routing, AReturningDeviceFindsItsPortsAsItLeftThem) {
  const auto port = a->PublishSource("Lasting", 201);
  const auto both = a->PublishDestination("Lasting in", 202);
  const std::size_t ports = bridge->Control().Ports().size();
  ASSERT_TRUE(b->Flush());
  b->App().Record().Clear();

  a->Detach();
  EXPECT_EQ(bridge->Control().Ports().size(), ports);
  PlayInto(both.id, {kNoteOn});  // nobody is there to hear it
  a->App().Record().Clear();
  a->Attach();
  ASSERT_TRUE(a->App().AnnounceSource("Lasting", 201));
  ASSERT_TRUE(a->App().AnnounceDestination("Lasting in", 202));
  ASSERT_TRUE(a->App().SendMidi("Lasting", 201, kNoteOn));
  ASSERT_TRUE(bridge->Control().WaitForPortMessages(port.id, 1));
  PlayInto(both.id, {kNoteOff});
  ASSERT_TRUE(a->WaitForMidi(1));
  Settle();

  EXPECT_THAT(PortBytes(port.id), ElementsAre(kNoteOn));
  EXPECT_EQ(a->Midi().at(0).data, kNoteOff);
  EXPECT_EQ(bridge->Control().Ports().size(), ports);
  for (const auto& known : bridge->Control().Ports()) {
    if (known.id != port.id && known.id != both.id) continue;
    EXPECT_TRUE(known.open);
  }
  EXPECT_THAT(Announcements(*b), IsEmpty());
  // Its own endpoints are no news to it; what the desktop offers is told again.
  for (const std::string& line : Announcements(*a)) {
    EXPECT_EQ(line.find("Lasting"), std::string::npos) << line;
  }
  EXPECT_TRUE(a->WaitForAnnouncement("/add_remote_source", "Keys", keys));
}

}  // namespace
}  // namespace corvalint::windows_test
