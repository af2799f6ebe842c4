// The bytes that the simulated device writes and reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "device/frame.h"
#include "device/json_line.h"
#include "device/osc_codec.h"
#include "device/rate_limiter.h"
#include "device/rubbish.h"

namespace corvalint::device {
namespace {

using ::testing::HasSubstr;
using ::testing::Optional;

Bytes FromText(const std::string& text) { return Bytes(text.begin(), text.end()); }

constexpr std::int64_t kBeyond32Bits = 0x0102030405060708;

TEST(OscCodec, MidiIsEncodedByteByByte) {
  const std::string expected(
      "/midi\0\0\0,sihb\0\0\0Keys\0\0\0\0"
      "\x00\x00\x00\x07"
      "\x01\x02\x03\x04\x05\x06\x07\x08"
      "\x00\x00\x00\x03\x90\x3c\x64\x00",
      44);
  EXPECT_EQ(EncodeMidi("Keys", 7, kBeyond32Bits, {0x90, 0x3c, 0x64}), FromText(expected));
}

TEST(OscCodec, TimingIsEncodedByteByByte) {
  const std::string expected("/init_timing\0\0\0\0,h\0\0\xff\xff\xff\xff\xff\xff\xff\xfe", 28);
  EXPECT_EQ(EncodeTiming("/init_timing", -2), FromText(expected));
}

TEST(OscCodec, EndpointIdIsANumberOrItsText) {
  const std::string number("/add_remote_source\0\0,si\0Pad\0\0\0\0\x2a", 32);
  EXPECT_EQ(EncodeEndpoint("/add_remote_source", "Pad", 42), FromText(number));
  const std::string text(
      "/add_remote_source\0\0,ss\0Pad\0"
      "42\0\0",
      32);
  EXPECT_EQ(EncodeEndpoint("/add_remote_source", "Pad", "42"), FromText(text));
}

TEST(OscCodec, EveryArgumentTypeSurvivesTheWay) {
  const OscMessage message{"/all",
                           "ihfdsbTF",
                           {std::int32_t{-5}, kBeyond32Bits, 0.5f, -0.25, std::string("text"),
                            Bytes{1, 2, 3, 4, 5}, true, false}};
  EXPECT_EQ(DecodePacket(EncodeMessage(message)), std::vector{message});
}

TEST(OscCodec, MessageWithoutArguments) {
  const OscMessage message{"/nothing", "", {}};
  EXPECT_EQ(DecodePacket(EncodeMessage(message)), std::vector{message});
}

TEST(OscCodec, EmptyBlobStaysABlob) {
  const auto messages = DecodePacket(EncodeMidi("", 0, 0, {}));
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].typeTags, "sihb");
  EXPECT_THAT(AsMidi(messages[0]), Optional(MidiMessage{"", 0, 0, {}}));
}

TEST(OscCodec, BundlesGiveTheirMessagesInOrder) {
  const Bytes inner = EncodeBundle({EncodeTiming("/b", 2), EncodeTiming("/c", 3)});
  const Bytes outer = EncodeBundle({EncodeTiming("/a", 1), inner, EncodeTiming("/d", 4)});
  std::string order;
  for (const OscMessage& message : DecodePacket(outer)) order += message.address;
  EXPECT_EQ(order, "/a/b/c/d");
}

TEST(OscCodec, BundlesMayNotNestWithoutEnd) {
  Bytes packet = EncodeTiming("/a", 1);
  for (int depth = 0; depth < 64; ++depth) packet = EncodeBundle({packet});
  EXPECT_EQ(DecodePacket(packet).size(), 1u);
  EXPECT_THROW(DecodePacket(EncodeBundle({packet})), std::runtime_error);
}

TEST(OscCodec, DamagedPacketsAreRefused) {
  EXPECT_THROW(DecodePacket(Bytes{}), std::runtime_error);
  EXPECT_THROW(DecodePacket(FromText("/abc")), std::runtime_error);   // no end of the address
  EXPECT_THROW(DecodePacket(FromText("12345")), std::runtime_error);  // not a multiple of 4
  EXPECT_THROW(DecodePacket(FromText("#bun")), std::runtime_error);
  Bytes cut = EncodeMidi("Keys", 7, 1, {0x90, 0x3c, 0x64});
  cut.resize(cut.size() - 4);
  EXPECT_THROW(DecodePacket(cut), std::runtime_error);
  Bytes strange = EncodeTiming("/a", 1);
  strange[5] = 'r';  // a colour, which no message carries
  EXPECT_THROW(DecodePacket(strange), std::runtime_error);
}

TEST(OscCodec, BlobThatClaimsMoreThanItsPacketIsRefused) {
  Bytes packet = EncodeMessage({"/b", "", {Bytes{1, 2, 3, 4}}});
  for (const int first : {0x00, 0x7F, 0xFF}) {
    packet[8] = static_cast<std::uint8_t>(first);
    packet[9] = packet[10] = packet[11] = 0xFF;
    EXPECT_THROW(DecodePacket(packet), std::runtime_error) << first;
  }
}

TEST(OscCodec, OnlyAMidiMessageIsReadAsMidi) {
  EXPECT_EQ(AsMidi(OscMessage{"/midi2", "", {}}), std::nullopt);
  EXPECT_EQ(AsMidi(DecodePacket(EncodeMidi("Keys", "7", 1, {}))[0]), std::nullopt);
}

TEST(OscCodec, DescriptionIsOneShortLine) {
  const auto message = DecodePacket(EncodeMidi("Keys", 7, 123, {0x90, 0x3c, 0x64}))[0];
  EXPECT_EQ(Describe(message), "/midi Keys 7 123 [90 3c 64]");
  const auto longer = DecodePacket(EncodeMidi("K", 7, 1, Bytes(17, 0xAB)))[0];
  EXPECT_THAT(Describe(longer), HasSubstr("ab ... 17 bytes]"));
  EXPECT_EQ(Describe(OscMessage{"/a\x1b", "s", {std::string("\n\x7f\xC3\xA9")}}),
            "/a\\x1b \\x0a\\x7f\xC3\xA9");
}

TEST(JsonLine, IsExactAndEscaped) {
  const ReceivedMessage received{2,
                                 99,
                                 {"/m",
                                  "sihbd",
                                  {std::string("a\"\\\n\xC3\xA9\xE9"), std::int32_t{-1},
                                   kBeyond32Bits, Bytes{0x90, 0x0a}, 0.5}}};
  EXPECT_EQ(ToJsonLine(received),
            "{\"stream\":2,\"arrival\":99,\"address\":\"/m\",\"tags\":\"sihbd\",\"arguments\":"
            "[\"a\\\"\\\\\\u000a\xC3\xA9\\u00e9\",-1,72623859790382856,\"900a\",0.5]}");
}

TEST(Frame, HeaderIsThreeBigEndianWords) {
  EXPECT_EQ(EncodeFrame(Bytes{9, 8}), (Bytes{0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 2, 9, 8}));
  EXPECT_EQ(EncodeFrame({0x01020304, 0x05060708, 0x090a0b0c}, {}),
            (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST(FrameReader, PutsAStreamTogetherByteByByte) {
  FrameBatch batch;
  batch.AddPacket({1});
  batch.AddPacket({2, 2, 2, 2, 2});
  FrameReader reader;
  std::vector<std::uint64_t> offsets;
  for (const std::uint8_t byte : batch.Data()) {
    reader.Feed(&byte, 1);
    while (const auto frame = reader.Next()) {
      offsets.push_back(frame->offset);
      EXPECT_EQ(frame->bytes.size(), kFrameHeaderSize + frame->header.length);
    }
  }
  EXPECT_EQ(offsets, (std::vector<std::uint64_t>{0, 13}));
  EXPECT_EQ(reader.Pending(), 0u);
  EXPECT_EQ(reader.Offset(), 30u);
}

TEST(FrameReader, TakesTheLongestFrameAndManyAtOnce) {
  FrameBatch batch;
  batch.AddPacket(Bytes(kLongestPayload, 7));
  batch.AddPacket({1, 2, 3, 4});
  FrameReader reader;
  reader.Feed(batch.Data().data(), batch.Data().size());
  const auto longest = reader.Next();
  ASSERT_TRUE(longest);
  EXPECT_EQ(longest->header.length, kLongestPayload);
  const auto last = reader.Next();
  ASSERT_TRUE(last);
  EXPECT_EQ(last->bytes, EncodeFrame(Bytes{1, 2, 3, 4}));
  EXPECT_FALSE(reader.Next());
}

TEST(FrameReader, NoticesWhereTheBoundaryIsLost) {
  const std::vector<FrameHeader> wrong{
      {0, 2, 2}, {kLongestPayload + 1, 2, 2}, {4, 1, 2}, {4, 2, 3}};
  for (const FrameHeader& header : wrong) {
    Bytes stream = EncodeFrame(Bytes{1, 2, 3, 4});
    const Bytes bad = EncodeFrame(header, {1, 2, 3, 4});
    const Bytes good = EncodeFrame(Bytes{5, 6, 7, 8});
    stream.insert(stream.end(), bad.begin(), bad.end());
    stream.insert(stream.end(), good.begin(), good.end());
    FrameReader reader;
    reader.Feed(stream.data(), stream.size());
    EXPECT_TRUE(reader.Next());
    EXPECT_FALSE(reader.Next());
    ASSERT_TRUE(reader.Broke());
    EXPECT_EQ(reader.Broke()->offset, 16u);
    reader.Feed(good.data(), good.size());
    EXPECT_FALSE(reader.Next());
  }
}

TEST(RateLimiter, LetsThroughItsRateAndSavesNothingUp) {
  constexpr std::int64_t kMillisecond = 1'000'000;
  RateLimiter limiter;
  EXPECT_GT(limiter.Allowed(0), 1u << 30);
  limiter.SetRate(10, 0);
  EXPECT_EQ(limiter.Allowed(0), 10u);
  limiter.Take(7);
  EXPECT_EQ(limiter.Allowed(kMillisecond - 1), 3u);
  EXPECT_EQ(limiter.Allowed(kMillisecond), 10u);
  limiter.Take(10);
  EXPECT_EQ(limiter.Allowed(kMillisecond), 0u);
  EXPECT_EQ(limiter.Allowed(50 * kMillisecond), 10u);
}

TEST(Rubbish, IsTheSameForTheSameSeed) {
  for (const RubbishKind kind : {RubbishKind::kPackets, RubbishKind::kStream}) {
    EXPECT_EQ(MakeRubbish(5, 50, kind), MakeRubbish(5, 50, kind));
    EXPECT_NE(MakeRubbish(5, 50, kind), MakeRubbish(6, 50, kind));
  }
}

TEST(Rubbish, PacketsKeepTheFrameBoundaryAndAreOftenDamaged) {
  const Bytes bytes = MakeRubbish(1, 500, RubbishKind::kPackets);
  FrameReader reader;
  reader.Feed(bytes.data(), bytes.size());
  int frames = 0;
  int damaged = 0;
  while (const auto frame = reader.Next()) {
    ++frames;
    try {
      DecodePacket(frame->bytes.data() + kFrameHeaderSize, frame->header.length);
    } catch (const std::runtime_error&) {
      ++damaged;
    }
  }
  EXPECT_EQ(frames, 500);
  EXPECT_EQ(reader.Pending(), 0u);
  EXPECT_GT(damaged, 200);
  EXPECT_LT(damaged, 500);
}

TEST(Rubbish, StreamsLoseTheFrameBoundary) {
  const Bytes bytes = MakeRubbish(1, 20, RubbishKind::kStream);
  FrameReader reader;
  reader.Feed(bytes.data(), bytes.size());
  while (reader.Next()) {
  }
  EXPECT_TRUE(reader.Broke());
}

}  // namespace
}  // namespace corvalint::device
