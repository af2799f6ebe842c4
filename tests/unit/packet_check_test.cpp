#include "protocol/packet_check.h"

#include <gtest/gtest.h>
#include <osc/OscReceivedElements.h>

#include <cstring>
#include <memory>
#include <string>

#include "support/osc_bytes.h"

namespace corvalint {
namespace {

using namespace test;

// What is wrong with the message, "" when nothing is. The bytes stand in a block of exactly their
// size, so that a sanitizer sees every read beyond them.
std::string Complaint(const std::string& message) {
  const std::unique_ptr<char[]> block(new char[message.size()]);
  std::memcpy(block.get(), message.data(), message.size());
  try {
    CheckMessage(block.get(), message.size());
  } catch (const osc::MalformedMessageException& failure) {
    return failure.what();
  }
  return "";
}

TEST(CheckMessage, AcceptsEveryTypeThatCarriesData) {
  const std::string arguments = OscInt32(1) + OscInt32(2) + OscInt32(3) + OscInt32(4) +
                                OscInt32(5) + OscInt64(6) + OscInt64(7) + OscDouble(8) +
                                OscText("nine") + OscText("ten") + OscBlobBytes("eleven");
  EXPECT_EQ(Complaint(OscMessage("/x", "ifcrmhtdsSb", arguments)), "");
  // One word less is too little.
  EXPECT_EQ(Complaint(OscMessage("/x", "ifcrmhtdsSb", arguments.substr(0, arguments.size() - 4))),
            "arguments exceed message size");
}

TEST(CheckMessage, AcceptsTypesWithoutDataAndMessagesWithoutArguments) {
  EXPECT_EQ(Complaint(OscMessage("/x", "TFNI[]", "")), "");
  EXPECT_EQ(Complaint(OscMessage("/x", "", "")), "");
  EXPECT_EQ(Complaint(OscText("/x")), "");
}

TEST(CheckMessage, EachTypeNeedsItsBytes) {
  for (const char* tag : {"i", "f", "c", "r", "m", "b"}) {
    EXPECT_EQ(Complaint(OscMessage("/x", tag, "")), "arguments exceed message size") << tag;
  }
  for (const char* tag : {"h", "t", "d"}) {
    EXPECT_EQ(Complaint(OscMessage("/x", tag, OscInt32(1))), "arguments exceed message size")
        << tag;
  }
  for (const char* tag : {"s", "S"}) {
    EXPECT_EQ(Complaint(OscMessage("/x", tag, "")), "unterminated string argument") << tag;
    EXPECT_EQ(Complaint(OscMessage("/x", tag, "abcd")), "unterminated string argument") << tag;
  }
}

TEST(CheckMessage, ABlobMayClaimNoMoreThanThereIs) {
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(4) + "abcd")), "");
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(5) + "abcd")),
            "arguments exceed message size");
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(131056))), "arguments exceed message size");
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(0x7FFFFFFCu))),
            "arguments exceed message size");
}

TEST(CheckMessage, ABlobThatNoMessageCanHoldHasAnInvalidSize) {
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(0x7FFFFFFDu))), "invalid blob size");
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(0x80000000u))), "invalid blob size");
  EXPECT_EQ(Complaint(OscMessage("/x", "b", OscInt32(0xFFFFFFFFu))), "invalid blob size");
}

TEST(CheckMessage, TheAddressMustEnd) {
  EXPECT_EQ(Complaint("/abc"), "unterminated address pattern");
  EXPECT_EQ(Complaint(""), "");  // the OSC library has its own word for an empty message
}

TEST(CheckMessage, TheTypeTagsMustEnd) {
  EXPECT_EQ(Complaint(OscText("/x") + ",iii"),
            "type tags were not terminated before end of message");
}

TEST(CheckMessage, PaddingMustBeInsideTheMessage) {
  EXPECT_EQ(Complaint(std::string("/x\0", 3)), "unterminated address pattern");
  EXPECT_EQ(Complaint(OscMessage("/x", "s", std::string("ab\0", 3))),
            "unterminated string argument");
}

// The OSC library looks for a text's end at every fourth byte, whatever stands before.
TEST(CheckMessage, ATextEndsWhereTheOscLibraryEndsIt) {
  const std::string odd(
      "ab\0c"
      "defg"
      "hij\0",
      12);
  EXPECT_EQ(Complaint(OscMessage("/x", "si", odd + OscInt32(1))), "");
  EXPECT_EQ(Complaint(OscMessage("/x", "si", odd)), "arguments exceed message size");
  EXPECT_EQ(Complaint(OscMessage("/x", "s", odd.substr(0, 8))), "unterminated string argument");
}

std::string BundleComplaint(const std::string& bundle) {
  const std::unique_ptr<char[]> block(new char[bundle.size()]);
  std::memcpy(block.get(), bundle.data(), bundle.size());
  try {
    CheckBundle(block.get(), bundle.size());
  } catch (const osc::MalformedBundleException& failure) {
    return failure.what();
  }
  return "";
}

TEST(CheckBundle, AcceptsElementsThatFillIt) {
  const std::string head = OscText("#bundle") + OscInt64(1);
  EXPECT_EQ(BundleComplaint(head), "");
  EXPECT_EQ(BundleComplaint(head + OscInt32(4) + OscText("/x") + OscInt32(0)), "");
}

// A size of 0xFFFFFFFC plus the four bytes of the size itself is 0 in 32 bits: whoever adds it up
// in 32 bits never gets on.
TEST(CheckBundle, RefusesAnElementThatClaimsMoreThanThereIs) {
  const std::string head = OscText("#bundle") + OscInt64(1);
  for (const std::int32_t size : {-4, -8, 4, 8, 0x7FFFFFFC}) {
    EXPECT_EQ(BundleComplaint(head + OscInt32(size)), "packet too short for bundle element")
        << size;
  }
  EXPECT_EQ(BundleComplaint(head + "abc"), "packet too short for bundle element");
}

}  // namespace
}  // namespace corvalint
