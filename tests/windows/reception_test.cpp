// How the shipped DLL takes apart what devices send: frames, bundles, bad packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/two_devices.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::IsEmpty;

class Reception : public TwoDevices {
 protected:
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
};

TEST_F(Reception, FramesInSingleBytes) {
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

TEST_F(Reception, FramesOfAnotherKindAreSwallowedWhole) {
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

TEST_F(Reception, LengthsThatCannotBeLoseTheStreamAndItComesBack) {
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

TEST_F(Reception, BundlesInBundlesAreHandledInOrder) {
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

TEST_F(Reception, MistakenArgumentsCostTheirOwnMessageOnly) {
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

TEST_F(Reception, UnknownAddressesAreIgnored) {
  for (const char* address : {"/midi2", "/mid", "/Midi", "midi", "/midi/", "/oscx"}) {
    ASSERT_TRUE(a->App().SendPacket(device::EncodeMessage(
        {address, "", {std::string("x"), std::int32_t{1}, std::int64_t{1}, Bytes{0xF8}}})));
  }
  ASSERT_TRUE(a->Flush() && b->Flush());
  EXPECT_EQ(console.Text(), "");
  EXPECT_THAT(b->Midi(), IsEmpty());
}

TEST_F(Reception, MalformedPacketsCostOneLineEach) {
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

TEST_F(Reception, DeepestNestingThatFitsAFrame) {
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
  const auto texts = TextsOf(LinesOf(bridge->GetDesk().Log().substr(before.size())));
  ASSERT_EQ(texts.size(), 2 * kLevels);
  for (std::size_t i = 0; i < kLevels; ++i) {
    ASSERT_EQ(texts[i], "INFO Bundle started 1");
    ASSERT_EQ(texts[kLevels + i], "INFO Bundle finished 1");
  }
  EXPECT_EQ(console.Text(), "");
  EXPECT_TRUE(bridge->GetHost().Running());
}

}  // namespace
}  // namespace corvalint::windows_test
