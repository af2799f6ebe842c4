// The bytes that the shipped DLL and a device exchange.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using device::EndpointId;
using harness::InputItem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kLateDeviceTime = 0x0123456789ABCDEF;

Bytes Joined(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }

Bytes BigEndian(std::uint64_t value, std::size_t width) {
  Bytes bytes;
  for (std::size_t i = width; i-- > 0;) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  return bytes;
}

Bytes BigEndian(std::int64_t value) { return BigEndian(static_cast<std::uint64_t>(value), 8); }

Bytes BigEndian(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return BigEndian(bits, 8);
}

Bytes Filled(Bytes bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

// A frame written out by hand: header, packet.
Bytes Framed(const std::vector<Bytes>& parts) {
  const Bytes packet = Joined(parts);
  return Joined({BigEndian(packet.size(), 4), {0, 0, 0, 2, 0, 0, 0, 2}, packet});
}

// An OSC string: ends in zeroes up to a multiple of four bytes.
Bytes OscText(std::string_view text) { return Filled(Joined({Text(text), {0}})); }

Bytes MidiFrame(std::string_view name, std::int32_t id, std::int64_t time, const Bytes& midi) {
  return Framed({OscText("/midi"), OscText(",sihb"), OscText(name),
                 BigEndian(static_cast<std::uint32_t>(id), 4), BigEndian(time),
                 BigEndian(midi.size(), 4), Filled(midi)});
}

Bytes EndpointFrame(std::string_view address, std::string_view name, std::int32_t id) {
  return Framed({OscText(address), OscText(",si"), OscText(name),
                 BigEndian(static_cast<std::uint32_t>(id), 4)});
}

// A desk with two devices that stay. Each test uses endpoints of its own and withdraws them.
class Wire : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    bridge = std::make_unique<Bridge>(std::vector<std::string>{kKeys},
                                      std::vector<std::string>{"Synth"});
    a = bridge->Plug("device-a");
    b = bridge->Plug("device-b");
    keys = bridge->GetHost().Sources().at(0).id;
    synth = bridge->GetHost().Destinations().at(0).id;
  }
  static void TearDownTestSuite() {
    EXPECT_THAT(a->App().Record().Violations(), IsEmpty());
    EXPECT_THAT(b->App().Record().Violations(), IsEmpty());
    EXPECT_THAT(bridge->Control().Violations(), IsEmpty());
    a.reset();
    b.reset();
    bridge.reset();
  }

  void SetUp() override {
    ASSERT_TRUE(a->Flush() && b->Flush());
    a->App().Record().Clear();
    b->App().Record().Clear();
    console.Restart();
  }

  // The packet costs one line; the stream stays, and the next message of it works.
  void ExpectRefused(const Bytes& packet, const std::string& reason) {
    const std::uint64_t streams = a->App().Record().Counters().streamsOpened;
    console.Restart();
    ASSERT_TRUE(a->App().SendPacket(packet));
    ASSERT_TRUE(a->Flush());
    EXPECT_EQ(console.Text(), "Error parsing message: " + reason + "\n");
    EXPECT_EQ(a->App().Record().Counters().streamsOpened, streams);
    EXPECT_TRUE(a->App().Connected());
  }

  // Aligns A's clock with that device time and gives the offset that A is answered.
  std::int64_t InitTiming(std::int64_t deviceTime) {
    a->App().Record().Clear();
    EXPECT_TRUE(a->App().SendPacket(device::EncodeTiming("/init_timing", deviceTime)));
    EXPECT_TRUE(WaitForMessagesTo(a->App(), "/init_timing", 1));
    const auto replies = a->App().Record().MessagesTo("/init_timing");
    return replies.at(0).message.Argument<std::int64_t>(0);
  }

  static constexpr const char* kKeys = "Kl\xE4vier";
  static std::unique_ptr<Bridge> bridge;
  static std::unique_ptr<PluggedDevice> a;
  static std::unique_ptr<PluggedDevice> b;
  static std::int32_t keys;
  static std::int32_t synth;
  ConsoleView console{bridge->GetHost()};
};

std::unique_ptr<Bridge> Wire::bridge;
std::unique_ptr<PluggedDevice> Wire::a;
std::unique_ptr<PluggedDevice> Wire::b;
std::int32_t Wire::keys = 0;
std::int32_t Wire::synth = 0;

std::int64_t Wrapped(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                   static_cast<std::uint64_t>(right));
}

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

TEST_F(Wire, FramesInSingleBytes) {
  a->App().SetPieceSize(1);
  ASSERT_TRUE(a->App().SendMidi("Slow", 5, 1, {0x90, 1, 2}));
  ASSERT_TRUE(a->App().AnnounceSource("Slow", 6) && a->App().WithdrawSource("Slow", 6));
  ASSERT_TRUE(a->App().WaitUntilSent(kPatience));
  a->App().SetPieceSize(0);
  ASSERT_TRUE(WaitForMessagesTo(b->App(), "/remove_remote_source", 1));
  EXPECT_EQ(b->Midi().at(0).data, (Bytes{0x90, 1, 2}));
  EXPECT_EQ(FramesTo(b->App(), "/add_remote_source").at(0),
            EndpointFrame("/add_remote_source", "Slow", 6));
}

TEST_F(Wire, FramesOfAnotherKindAreSwallowedWhole) {
  const Bytes midi = device::EncodeMidi("Unheard", 5, 1, {0xFA});
  const auto length = static_cast<std::uint32_t>(midi.size());
  ASSERT_TRUE(a->App().SendFrame({length, 1, 2}, midi));
  ASSERT_TRUE(a->App().SendFrame({3, 0xFFFFFFFF, 2}, {1, 2, 3}));
  // The third word does not matter.
  ASSERT_TRUE(a->App().SendFrame({length, 2, 0xABCD}, device::EncodeMidi("Heard!!", 6, 1, {0xFB})));
  ASSERT_TRUE(b->WaitForMidi(1));
  ASSERT_TRUE(a->Flush() && b->Flush());
  ASSERT_EQ(b->Midi().size(), 1u);
  EXPECT_EQ(b->Midi()[0].name, "Heard!!");
  EXPECT_EQ(console.Text(), "");
}

TEST_F(Wire, LengthsThatCannotBeLoseTheStreamAndItComesBack) {
  std::uint64_t streams = a->App().Record().Counters().streamsOpened;
  for (const std::uint32_t length : {0u, device::kLongestPayload + 1}) {
    console.Restart();
    ASSERT_TRUE(a->App().SendFrame({length, 2, 2}, {}));
    ASSERT_TRUE(bridge->GetHost().WaitForConsole("Invalid packet length " + std::to_string(length) +
                                                 "\r\n"));
    ASSERT_TRUE(a->App().Record().WaitForCounters(
        [&](const device::DeviceCounters& counters) { return counters.streamsOpened > streams; },
        kPatience));
    ++streams;
    ASSERT_TRUE(a->Flush());
  }
}

TEST_F(Wire, BundlesInBundlesAreHandledInOrder) {
  const std::int64_t offset = InitTiming(0);
  const auto midi = [](std::int32_t id) { return device::EncodeMidi("Bundled", id, id, {0xF8}); };
  Bytes inner = device::EncodeBundle({midi(2), midi(3)});
  inner[8] = 0xFF;  // its time tag is far in the future, which nobody waits for
  ASSERT_TRUE(a->App().SendPacket(
      device::EncodeBundle({midi(1), inner, device::EncodeBundle({}), midi(4)})));
  ASSERT_TRUE(b->WaitForMidi(4));
  std::vector<Bytes> expected;
  for (std::int32_t id = 1; id <= 4; ++id) {
    expected.push_back(MidiFrame("Bundled", id, Wrapped(offset, id), {0xF8}));
  }
  EXPECT_EQ(FramesTo(b->App(), "/midi"), expected);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(Wire, MistakenArgumentsCostTheirOwnMessageOnly) {
  const auto midi = [](std::int32_t id) { return device::EncodeMidi("Bundled", id, 1, {0xF8}); };
  const Bytes wrong = device::EncodeMessage({"/midi", "", {std::int32_t{1}}});
  const Bytes missing = device::EncodeMessage({"/add_remote_source", "", {std::string("x")}});
  ASSERT_TRUE(a->App().SendPacket(device::EncodeBundle({midi(1), wrong, missing, midi(2)})));
  ASSERT_TRUE(b->WaitForMidi(2));
  ASSERT_TRUE(a->Flush());
  EXPECT_EQ(console.Text(),
            "Error parsing message: wrong argument type\n"
            "Error parsing message: missing argument\n");
}

TEST_F(Wire, UnknownAddressesAreIgnored) {
  for (const char* address : {"/midi2", "/mid", "/Midi", "midi", "/midi/", "/osc"}) {
    ASSERT_TRUE(a->App().SendPacket(device::EncodeMessage(
        {address, "", {std::string("x"), std::int32_t{1}, std::int64_t{1}, Bytes{0xF8}}})));
  }
  ASSERT_TRUE(a->Flush() && b->Flush());
  EXPECT_EQ(console.Text(), "");
  EXPECT_THAT(b->Midi(), IsEmpty());
}

TEST_F(Wire, MalformedPacketsCostOneLineEach) {
  ExpectRefused(Text("#bun"), "packet too short for bundle");
  ExpectRefused({0}, "element size must be multiple of four");
  ExpectRefused(Text("/midi"), "element size must be multiple of four");
  ExpectRefused(Text("/mid"), "unterminated address pattern");
  ExpectRefused(OscText("/add_remote_source"), "missing argument");
  ExpectRefused(Joined({OscText("/add_remote_source"), OscText(",")}), "missing argument");
  ExpectRefused(Joined({OscText("/midi"), Text(",sih")}),
                "type tags were not terminated before end of message");
  ExpectRefused(Joined({OscText("/init_timing"), OscText(",h"), {0, 0, 0, 1}}),
                "arguments exceed message size");
  ExpectRefused(Joined({OscText("/add_remote_source"), OscText(",si"), Text("Keys")}),
                "unterminated string argument");
  // Blobs that claim more than their packet has.
  const Bytes midiUpToBlob = Joined(
      {OscText("/midi"), OscText(",sihb"), OscText("x"), {0, 0, 0, 1}, BigEndian(kLateDeviceTime)});
  for (const std::uint64_t claimed : {5u, 131056u, 0x7FFFFFFCu}) {
    ExpectRefused(Joined({midiUpToBlob, BigEndian(claimed, 4), {1, 2, 3, 4}}),
                  "arguments exceed message size");
  }
  ExpectRefused(Joined({midiUpToBlob, BigEndian(0xFFFFFFFFu, 4)}), "invalid blob size");
  ExpectRefused(Joined({OscText("#bundle"), BigEndian(1u, 8), {0, 0, 0, 64}, OscText("/x")}),
                "packet too short for bundle element");
  ASSERT_TRUE(b->Flush());
  EXPECT_THAT(b->Midi(), IsEmpty());
}

TEST_F(Wire, DeepestNestingThatFitsAFrame) {
  constexpr std::size_t kLevels = 6553;
  constexpr std::size_t kBundleHead = 16;
  constexpr std::size_t kPerLevel = 4 + kBundleHead;
  const Bytes innermost = Joined({OscText("/x"), OscText(",i"), {0, 0, 0, 1}});
  std::size_t size = kBundleHead + (kLevels - 1) * kPerLevel + 4 + innermost.size();
  ASSERT_EQ(size, device::kLongestPayload);
  Bytes packet;
  for (std::size_t level = 0; level < kLevels; ++level) {
    const Bytes head = Joined({OscText("#bundle"), BigEndian(1u, 8)});
    packet.insert(packet.end(), head.begin(), head.end());
    size -= kPerLevel;
    const Bytes rest = BigEndian(size, 4);
    packet.insert(packet.end(), rest.begin(), rest.end());
  }
  packet.insert(packet.end(), innermost.begin(), innermost.end());
  ASSERT_EQ(packet.size(), device::kLongestPayload);
  const std::string before = bridge->GetDesk().Log();
  ASSERT_TRUE(a->App().SendPacket(packet));
  ASSERT_TRUE(a->Flush());
  EXPECT_EQ(console.Text(), "");
  const auto texts = TextsOf(LinesOf(bridge->GetDesk().Log().substr(before.size())));
  ASSERT_EQ(texts.size(), 2 * kLevels);
  for (std::size_t i = 0; i < kLevels; ++i) {
    ASSERT_EQ(texts[i], "INFO Bundle started 1");
    ASSERT_EQ(texts[kLevels + i], "INFO Bundle finished 1");
  }
  EXPECT_TRUE(bridge->GetHost().Running());
}

}  // namespace
}  // namespace corvalint::windows_test
