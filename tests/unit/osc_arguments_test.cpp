#include "protocol/osc_arguments.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/osc_bytes.h"

namespace corvalint {
namespace {

using namespace test;

// A message with its bytes, which the OSC library reads in place.
class Message {
 public:
  explicit Message(std::string packet)
      : bytes(std::move(packet)),
        message(osc::ReceivedPacket(bytes.data(),
                                    static_cast<osc::osc_bundle_element_size_t>(bytes.size()))) {}
  OscArguments Arguments() const { return OscArguments(message); }

 private:
  const std::string bytes;
  const osc::ReceivedMessage message;
};

template <class Exception, class Action>
std::string TextOf(Action action) {
  try {
    action();
  } catch (const Exception& failure) {
    return failure.what();
  }
  return "nothing was thrown";
}

TEST(OscArguments, AreReadInOrder) {
  const Message message(
      MidiMessage("Keys", -7, 0x123456789ABCDEF0, std::string("\x90\x3C\x7F", 3)));
  OscArguments arguments = message.Arguments();
  EXPECT_STREQ(arguments.String(), "Keys");
  EXPECT_EQ(arguments.Int32(), -7);
  EXPECT_EQ(arguments.Int64(), 0x123456789ABCDEF0);
  const OscBlob blob = arguments.Blob();
  ASSERT_EQ(blob.size, 3u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(blob.data), 3), "\x90\x3C\x7F");
}

TEST(OscArguments, AnEmptyBlobHasAnAddress) {
  const Message message(OscMessage("/x", "b", OscBlobBytes("")));
  const OscBlob blob = message.Arguments().Blob();
  EXPECT_EQ(blob.size, 0u);
  EXPECT_NE(blob.data, nullptr);
}

TEST(OscArguments, AnInt32MayBeAString) {
  const Message message(OscMessage("/x", "sss", OscText("42") + OscText("-7") + OscText("mouse")));
  OscArguments arguments = message.Arguments();
  EXPECT_EQ(arguments.Int32(), 42);
  EXPECT_EQ(arguments.Int32(), -7);
  EXPECT_EQ(arguments.Int32(), 0);
}

TEST(OscArguments, OnlyAnInt32MayBeAString) {
  const Message message(OscMessage("/x", "s", OscText("42")));
  EXPECT_EQ(TextOf<osc::WrongArgumentTypeException>([&] { message.Arguments().Int64(); }),
            "wrong argument type");
}

TEST(OscArguments, AMissingArgumentIsMissing) {
  const Message message(OscMessage("/x", "i", OscInt32(1)));
  OscArguments arguments = message.Arguments();
  arguments.Int32();
  EXPECT_EQ(TextOf<osc::MissingArgumentException>([&] { arguments.Int32(); }), "missing argument");
}

TEST(OscArguments, WithoutTypeTagsEveryArgumentIsMissing) {
  const Message message(OscText("/x"));
  EXPECT_EQ(TextOf<osc::MissingArgumentException>([&] { message.Arguments().Int32(); }),
            "missing argument");
  EXPECT_EQ(TextOf<osc::MissingArgumentException>([&] { message.Arguments().String(); }),
            "missing argument");
  EXPECT_EQ(TextOf<osc::MissingArgumentException>([&] { message.Arguments().Int64(); }),
            "missing argument");
  EXPECT_EQ(TextOf<osc::MissingArgumentException>([&] { message.Arguments().Blob(); }),
            "missing argument");
}

TEST(OscArguments, AnotherTypeIsWrong) {
  const Message message(OscMessage("/x", "d", OscDouble(1.0)));
  EXPECT_EQ(TextOf<osc::WrongArgumentTypeException>([&] { message.Arguments().String(); }),
            "wrong argument type");
  EXPECT_EQ(TextOf<osc::WrongArgumentTypeException>([&] { message.Arguments().Int32(); }),
            "wrong argument type");
  EXPECT_EQ(TextOf<osc::WrongArgumentTypeException>([&] { message.Arguments().Int64(); }),
            "wrong argument type");
  EXPECT_EQ(TextOf<osc::WrongArgumentTypeException>([&] { message.Arguments().Blob(); }),
            "wrong argument type");
}

TEST(OscArguments, AnInt32IsNoInt64AndTheOtherWayRound) {
  const Message narrow(OscMessage("/x", "i", OscInt32(1)));
  EXPECT_THROW(narrow.Arguments().Int64(), osc::WrongArgumentTypeException);
  const Message wide(OscMessage("/x", "h", OscInt64(1)));
  EXPECT_THROW(wide.Arguments().Int32(), osc::WrongArgumentTypeException);
}

TEST(ParseDecimal, TakesLeadingDigits) {
  EXPECT_EQ(ParseDecimal("42"), 42);
  EXPECT_EQ(ParseDecimal("007"), 7);
  EXPECT_EQ(ParseDecimal("12x9"), 12);
  EXPECT_EQ(ParseDecimal("2147483647"), 2147483647);
  EXPECT_EQ(ParseDecimal("-2147483648"), INT32_MIN);
}

TEST(ParseDecimal, GivesZeroWithoutDigits) {
  for (const char* text : {"", "x1", "-", "+", "- 1", "+-1", "--1", " ", ".5"}) {
    EXPECT_EQ(ParseDecimal(text), 0) << '"' << text << '"';
  }
}

TEST(ParseDecimal, SkipsBlanksAndTakesOneSign) {
  EXPECT_EQ(ParseDecimal(" \t\n\v\f\r-12"), -12);
  EXPECT_EQ(ParseDecimal("+12"), 12);
  EXPECT_EQ(ParseDecimal("12 34"), 12);
}

TEST(ParseDecimal, KeepsTheLowBitsOfLargeNumbers) {
  EXPECT_EQ(ParseDecimal("3000000000"), static_cast<std::int32_t>(3000000000u));
  EXPECT_EQ(ParseDecimal("4294967297"), 1);
  EXPECT_EQ(ParseDecimal("-4294967297"), -1);
  EXPECT_EQ(ParseDecimal("18446744073709551617"), 1);
}

}  // namespace
}  // namespace corvalint
