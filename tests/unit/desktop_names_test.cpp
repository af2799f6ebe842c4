#include "ports/desktop_names.h"

#include <gtest/gtest.h>

namespace corvalint {
namespace {

TEST(DesktopNames, KnowsANameFromItsAdditionToItsRemoval) {
  DesktopNames names;
  EXPECT_FALSE(names.Contains("Piano"));
  names.Add("Piano");
  EXPECT_TRUE(names.Contains("Piano"));
  names.Remove("Piano");
  EXPECT_FALSE(names.Contains("Piano"));
}

TEST(DesktopNames, ComparesByteByByteAndWhole) {
  DesktopNames names;
  names.Add("Piano");
  EXPECT_FALSE(names.Contains("piano"));
  EXPECT_FALSE(names.Contains("Pian"));
  EXPECT_FALSE(names.Contains("Piano "));
  EXPECT_FALSE(names.Contains(""));
}

TEST(DesktopNames, ForgetsANameWithItsLastPort) {
  DesktopNames names;
  names.Add("Piano");
  names.Add("Piano");
  names.Remove("Piano");
  EXPECT_TRUE(names.Contains("Piano"));
  names.Remove("Piano");
  EXPECT_FALSE(names.Contains("Piano"));
}

TEST(DesktopNames, RemovingAnUnknownNameChangesNothing) {
  DesktopNames names;
  names.Remove("Piano");
  names.Add("Piano");
  EXPECT_TRUE(names.Contains("Piano"));
  names.Remove("Organ");
  EXPECT_TRUE(names.Contains("Piano"));
}

TEST(DesktopNames, APortThatLeavesDuringAScanIsKnownUntilTheScanEnds) {
  DesktopNames names;
  names.Add("Piano");
  names.BeginScan();
  names.Remove("Piano");
  EXPECT_TRUE(names.Contains("Piano"));
  names.EndScan();
  EXPECT_FALSE(names.Contains("Piano"));
}

TEST(DesktopNames, TheLastOfSeveralScansForgets) {
  DesktopNames names;
  names.Add("Piano");
  names.BeginScan();
  names.BeginScan();
  names.Remove("Piano");
  names.EndScan();
  EXPECT_TRUE(names.Contains("Piano"));
  names.EndScan();
  EXPECT_FALSE(names.Contains("Piano"));
}

TEST(DesktopNames, APortThatComesBackDuringAScanStaysAfterIt) {
  DesktopNames names;
  names.Add("Piano");
  names.BeginScan();
  names.Remove("Piano");
  names.Add("Piano");
  names.EndScan();
  EXPECT_TRUE(names.Contains("Piano"));
}

// winmm gives 31 bytes, or 30 when the last character would be split.
TEST(DesktopNames, TellsANameThatGrewTooLongByItsFirst30Bytes) {
  DesktopNames names;
  const std::string first30 = "012345678901234567890123456789";
  names.Add(first30 + "ab");
  EXPECT_TRUE(names.Contains(first30 + "a"));
  EXPECT_TRUE(names.Contains(first30));
  EXPECT_FALSE(names.Contains(first30.substr(0, 29)));
  EXPECT_FALSE(names.Contains("x" + first30));
  names.Remove(first30 + "ab");
  EXPECT_FALSE(names.Contains(first30 + "a"));
  EXPECT_FALSE(names.Contains(first30));
}

TEST(DesktopNames, TellsANameOf31BytesByAllOfThem) {
  DesktopNames names;
  const std::string name = "0123456789012345678901234567890";
  ASSERT_EQ(name.size(), kLongestDesktopName);
  names.Add(name);
  EXPECT_TRUE(names.Contains(name));
  EXPECT_FALSE(names.Contains(name.substr(0, 30)));
  EXPECT_FALSE(names.Contains(name.substr(0, 30) + "x"));
}

TEST(DesktopNames, ALongNameThatLeavesDuringAScanIsKnownUntilTheScanEnds) {
  DesktopNames names;
  const std::string name(40, 'n');
  names.Add(name);
  names.BeginScan();
  names.Remove(name);
  EXPECT_TRUE(names.Contains(name.substr(0, 31)));
  names.EndScan();
  EXPECT_FALSE(names.Contains(name.substr(0, 31)));
}

}  // namespace
}  // namespace corvalint
