#include <gtest/gtest.h>

#include <string>

#include "service/log.h"
#include "support/log_fixture.h"

namespace corvalint {
namespace {

using test::kHead;
using test::kLimit;
using test::kTemplateSize;
using test::LogTest;
using Calls = test::CallLog::Calls;

// --- without a log

TEST_F(LogTest, ComplainsOnStandardOutputWithoutALogAndOnlyInfoEndsItsLine) {
  LogInfo("a %d", 1);
  EXPECT_EQ(console.Take(), "BUG: log not initialized!\n");
  LogError("a %d", 1);
  EXPECT_EQ(console.Take(), "BUG: log not initialized!");
  LogDebug("a %d", 1);
  EXPECT_EQ(console.Take(), "BUG: log not initialized!");
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(LogTest, DoesNothingElseWithoutALog) {
  LogWrite(kLogError, "a %d", 1);
  LogRotate();
  LogSetThreshold(kLogDebug);
  EXPECT_EQ(console.Text(), "");
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(LogTest, AThresholdThatWasSetWithoutALogIsNotKept) {
  LogSetThreshold(kLogDebug);
  LogInit("log");
  LogDebug("hidden");
  EXPECT_EQ(Text(), "");
}

// --- the form of a line

TEST_F(LogTest, WritesTimeThreadLevelAndMessageAndOneLineFeed) {
  LogInit("log");
  LogInfo("hello");
  EXPECT_EQ(Text(), "2026-11-16 01:48:06 [4312] INFO hello\n");
  EXPECT_EQ(console.Text(), "");
}

TEST_F(LogTest, PadsDateAndTimeWithZeros) {
  LogInit("log");
  clock.SetLocalTime({7, 1, 2, 3, 4, 5});
  LogInfo("early");
  clock.SetLocalTime({2026, 12, 31, 23, 59, 60});
  LogInfo("late");
  EXPECT_EQ(Text(),
            "0007-01-02 03:04:05 [4312] INFO early\n2026-12-31 23:59:60 [4312] INFO late\n");
}

TEST_F(LogTest, ShowsTheThreadsIdAsAnUnsignedNumber) {
  LogInit("log");
  writerId = 4294967295u;
  LogInfo("x");
  writerId = 1;
  LogInfo("y");
  EXPECT_EQ(Text(), "2026-11-16 01:48:06 [4294967295] INFO x\n2026-11-16 01:48:06 [1] INFO y\n");
}

TEST_F(LogTest, NamesEveryLevel) {
  LogInit("log");
  LogSetThreshold(5);
  for (int level = -1; level <= 5; ++level) LogWrite(level, "m");
  EXPECT_EQ(Text(), kHead + "UNKNOWN m\n" + kHead + "UNKNOWN m\n" + kHead + "ERROR m\n" + kHead +
                        "WARN m\n" + kHead + "INFO m\n" + kHead + "DEBUG m\n" + kHead +
                        "UNKNOWN m\n");
}

TEST_F(LogTest, NamesTheLevelOfEachShortForm) {
  LogInit("log");
  LogSetThreshold(kLogDebug);
  LogError("e %d", 1);
  LogInfo("i %d", 2);
  LogDebug("d %d", 3);
  EXPECT_EQ(Text(), kHead + "ERROR e 1\n" + kHead + "INFO i 2\n" + kHead + "DEBUG d 3\n");
}

TEST_F(LogTest, ExpandsAFormatInsideTheLine) {
  LogInit("log");
  LogInfo("%d of %s is %u%%", -5, "Keys", 7u);
  EXPECT_EQ(Text(), kHead + "INFO -5 of Keys is 7%\n");
}

TEST_F(LogTest, TakesNoArgumentForAFormat) {
  LogInit("log");
  LogInfo("%s", "100%s %n\r\n\x1B[2J %d");
  EXPECT_EQ(Text(), kHead + "INFO 100%s %n\r\n\x1B[2J %d\n");
}

TEST_F(LogTest, KeepsALineEndInsideAMessage) {
  LogInit("log");
  LogInfo("Subscribed for notifications: %u\n", 0u);
  EXPECT_EQ(Text(), kHead + "INFO Subscribed for notifications: 0\n\n");
}

TEST_F(LogTest, WritesAnEmptyMessage) {
  LogInit("log");
  LogInfo("%s", "");
  EXPECT_EQ(Text(), kHead + "INFO \n");
}

TEST_F(LogTest, WritesArgumentsOfAnyLengthWhole) {
  LogInit("log");
  const std::string name(100000, 'n');
  LogInfo("a %s b", name.c_str());
  EXPECT_EQ(Text(), kHead + "INFO a " + name + " b\n");
}

TEST_F(LogTest, WritesNothingForANullFormat) {
  LogInit("log");
  const char* const none = nullptr;
  LogWrite(kLogError, none);
  EXPECT_EQ(Text(), "");
}

TEST_F(LogTest, HasEveryLineInTheFileAtOnce) {
  LogInit("log");
  LogInfo("one");
  EXPECT_EQ(Text(), kHead + "INFO one\n");
  LogInfo("two");
  EXPECT_EQ(Text(), kHead + "INFO one\n" + kHead + "INFO two\n");
}

// --- a format that is too long for a line's template

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

void LogFormat(const std::string& format) { LogInfo(format.c_str(), 1, 2); }

// How much of a message's format fits.
const std::size_t kFormatRoom = kTemplateSize - 1 - (kHead + "INFO ").size();

TEST_F(LogTest, CutsAFormatAtTheEndOfItsTemplate) {
  LogInit("log");
  LogFormat(std::string(kFormatRoom - 1, 'f'));
  EXPECT_EQ(Text(), kHead + "INFO " + std::string(kFormatRoom - 1, 'f') + "\n");
  LogResetForTest();
  process.Folder().Write("log", "");
  LogInit("log");
  LogFormat(std::string(kFormatRoom + 1000, 'f'));
  EXPECT_EQ(Text(), kHead + "INFO " + std::string(kFormatRoom, 'f'));
}

TEST_F(LogTest, DropsAConversionThatTheCutWentThrough) {
  for (const std::string conversion : {"%d", "%-5d", "%+0.3d", "%hhd", "%5%"}) {
    SCOPED_TRACE(conversion);
    for (std::size_t kept = 1; kept < conversion.size(); ++kept) {
      LogResetForTest();
      process.Folder().Write("log", "");
      LogInit("log");
      LogFormat(std::string(kFormatRoom - kept, 'f') + conversion + "tail");
      EXPECT_EQ(Text(), kHead + "INFO " + std::string(kFormatRoom - kept, 'f'));
    }
  }
}

TEST_F(LogTest, CountsTheBytesOfALineWithACutConversion) {
  Fill(kLimit - 1000);
  LogInit("log");
  LogFormat(std::string(kFormatRoom - 1, 'f') + "%d");
  EXPECT_EQ(Text(), "");
}

TEST_F(LogTest, KeepsWhatStandsBeforeTheCut) {
  LogInit("log");
  const std::string filler(kFormatRoom - 5, 'f');
  LogFormat("%d%%" + filler + "%and so on");
  EXPECT_EQ(Text(), kHead + "INFO 1%" + filler);
}

#pragma GCC diagnostic pop

// --- threshold

TEST_F(LogTest, WritesUpToInfoFromTheStart) {
  LogInit("log");
  LogDebug("hidden");
  LogWrite(4, "hidden");
  LogWrite(3, "shown");
  EXPECT_EQ(Text(), kHead + "INFO shown\n");
}

TEST_F(LogTest, WritesDebugOnceTheThresholdIsRaised) {
  LogInit("log");
  LogSetThreshold(kLogDebug);
  LogDebug("shown");
  LogWrite(5, "hidden");
  EXPECT_EQ(Text(), kHead + "DEBUG shown\n");
}

TEST_F(LogTest, ALoweredThresholdHidesInfo) {
  LogInit("log");
  LogSetThreshold(kLogWarn);
  LogInfo("hidden");
  LogWrite(kLogWarn, "shown");
  LogError("shown");
  EXPECT_EQ(Text(), kHead + "WARN shown\n" + kHead + "ERROR shown\n");
}

}  // namespace
}  // namespace corvalint
