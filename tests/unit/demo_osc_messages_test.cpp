// The music as OSC messages, and as the two OSC programs of the demo take and print them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "demo/osc_messages.h"

namespace corvalint::demo {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

const harness::Bytes kNote{0x90, 0x3C, 0x40};

TEST(DemoOscMessages, TellANumberAnInstrumentALoudnessAndTheBytes) {
  const device::OscMessage message = AsOsc(17, kNote);
  EXPECT_EQ(message.address, "/play");
  EXPECT_EQ(message.typeTags, "isfiii");
  EXPECT_EQ(message.Argument<std::int32_t>(0), 17);
  EXPECT_EQ(message.Argument<std::string>(1), "Grand Piano");
  EXPECT_FLOAT_EQ(message.Argument<float>(2), 64.0f / 127.0f);
  EXPECT_EQ(message.Argument<std::int32_t>(3), 0x90);
  EXPECT_EQ(message.Argument<std::int32_t>(4), 0x3C);
  EXPECT_EQ(message.Argument<std::int32_t>(5), 0x40);
  EXPECT_THAT(message.arguments, SizeIs(6));
}

TEST(DemoOscMessages, ComeBackFromTheirPackets) {
  for (const harness::Bytes& midi : {kNote, harness::Bytes{0xC0, 0x05}, harness::Bytes{}}) {
    const device::OscMessage message = AsOsc(3, midi);
    EXPECT_THAT(device::DecodePacket(device::EncodeMessage(message)), ElementsAre(message));
  }
}

TEST(DemoOscMessages, ArePrintedAsOscdumpDoes) {
  EXPECT_EQ(DumpLine(AsOsc(17, kNote)), "/play isfiii 17 \"Grand Piano\" 0.503937 144 60 64");
  EXPECT_EQ(DumpLine({"/read", {}, {std::int32_t{-4}}}), "/read i -4");
  EXPECT_EQ(DumpLine({"/f", {}, {0.1f, 1.5f}}), "/f ff 0.100000 1.500000");
}

TEST(DemoOscMessages, LinesLoseTheirTimeOnly) {
  EXPECT_EQ(WithoutTime("eeac33b3.d69c0228 /b/c ifs 1 0.100000 \"he llo\""),
            "/b/c ifs 1 0.100000 \"he llo\"");
  EXPECT_EQ(WithoutTime("nonsense"), "");
  EXPECT_EQ(WithoutTime(""), "");
}

TEST(DemoOscMessages, AreHandedToOscsendAsArguments) {
  EXPECT_THAT(
      OscSendArguments(AsOsc(17, kNote)),
      ElementsAre("/play", "isfiii", "17", "Grand Piano", "0.503937006", "144", "60", "64"));
}

TEST(DemoOscMessages, OscsendGetsEveryFloatToTheBit) {
  for (int value = 0; value < 128; ++value) {
    const device::OscMessage message = AsOsc(1, {0xB0, 0x07, static_cast<std::uint8_t>(value)});
    EXPECT_EQ(std::stof(OscSendArguments(message).at(4)), message.Argument<float>(2));
  }
}

TEST(DemoOscMessages, RefuseArgumentsThatTheDemoDoesNotPlay) {
  const device::OscMessage blob{"/x", {}, {device::Bytes{1, 2}}};
  EXPECT_THROW(DumpLine(blob), std::invalid_argument);
  EXPECT_THROW(OscSendArguments(blob), std::invalid_argument);
}

TEST(DemoOscMessages, PacedSongsBeginAgainWhenTheyAreOver) {
  const device::Song song{"two", {{700, kNote}, {900, {0xC0, 0x05}}}};
  const device::Song paced = Paced(song, 3, 1000);
  EXPECT_EQ(paced.title, "two");
  EXPECT_THAT(paced.events,
              ElementsAre(device::SongEvent{0, kNote}, device::SongEvent{1000, {0xC0, 0x05}},
                          device::SongEvent{2000, kNote}));
  EXPECT_THAT(Paced({"empty", {}}, 3, 1000).events, SizeIs(0));
  EXPECT_THAT(Paced(song, 0, 1000).events, SizeIs(0));
}

}  // namespace
}  // namespace corvalint::demo
