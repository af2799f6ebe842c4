#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "service/log.h"
#include "service/log_limits.h"
#include "support/log_fixture.h"

// The log with other limits than its own: numbered copies, another size, or none.

namespace corvalint {
namespace {

using test::kHead;
using test::kLimit;
using test::LogTest;
using Calls = test::CallLog::Calls;
using Names = std::vector<std::string>;

class LogBackups : public LogTest {
 protected:
  std::string File(const std::string& name) const { return process.Folder().Read(name); }
  Names Files() const { return process.Folder().Names(); }

  // Truncates a log with that text and enough behind it to be over a limit of 1 KiB.
  void RotateOut(const std::string& text) {
    process.Folder().Write("log", Large(text));
    LogRotate();
  }
  static std::string Large(const std::string& text) { return text + std::string(1024, 'x'); }
};

TEST_F(LogBackups, ATruncationKeepsTheLogAsItsFirstCopy) {
  LogInit("log");
  LogSetLimits(1, 1);
  calls.Take();
  RotateOut("one");
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, r)", "openFile(log.1, w)",
                                 "openFile(log, w)"}));
  EXPECT_EQ(Files(), (Names{"log", "log.1"}));
  EXPECT_EQ(File("log.1"), Large("one"));
  EXPECT_EQ(Text(), "");
  RotateOut("two");
  EXPECT_EQ(Files(), (Names{"log", "log.1"}));
  EXPECT_EQ(File("log.1"), Large("two"));
}

TEST_F(LogBackups, OlderCopiesMoveUpAndTheOldestIsLost) {
  LogInit("log");
  LogSetLimits(1, 3);
  for (const char* text : {"one", "two", "three", "four", "five"}) RotateOut(text);
  EXPECT_EQ(Files(), (Names{"log", "log.1", "log.2", "log.3"}));
  EXPECT_EQ(File("log.1"), Large("five"));
  EXPECT_EQ(File("log.2"), Large("four"));
  EXPECT_EQ(File("log.3"), Large("three"));
}

TEST_F(LogBackups, ACopyThatIsMissingIsNoObstacle) {
  LogInit("log");
  LogSetLimits(1, 3);
  process.Folder().Write("log.2", "old");
  RotateOut("one");
  EXPECT_EQ(Files(), (Names{"log", "log.1", "log.2", "log.3"}));
  EXPECT_EQ(File("log.3"), "old");
  EXPECT_EQ(File("log.2"), "old");
  EXPECT_EQ(File("log.1"), Large("one"));
}

TEST_F(LogBackups, CopiesAreByteForByteAndOfAnyLength) {
  LogInit("log");
  LogSetLimits(1, 1);
  for (const std::size_t size : {1025u, 1535u, 1536u, 1537u, 100000u}) {
    SCOPED_TRACE(size);
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(i * 7);
    process.Folder().Write("log", bytes);
    LogRotate();
    EXPECT_TRUE(File("log.1") == bytes);
  }
}

TEST_F(LogBackups, ALogBelowItsLimitIsNotCopied) {
  LogInit("log");
  LogSetLimits(1, 2);
  process.Folder().Write("log", std::string(1024, 'x'));
  LogRotate();
  EXPECT_EQ(Files(), Names{"log"});
  EXPECT_EQ(Text().size(), 1024u);
}

TEST_F(LogBackups, TheLimitIsInKibibytes) {
  LogInit("log");
  LogSetLimits(3, 0);
  WriteBytes(3 * 1024);
  EXPECT_EQ(Text().size(), 3u * 1024);
  LogInfo("over");
  EXPECT_EQ(Text(), "");
}

TEST_F(LogBackups, ALimitBelowOneTurnsTheChecksOff) {
  for (const std::int32_t limit : {0, -1, INT32_MIN}) {
    SCOPED_TRACE(limit);
    LogResetForTest();
    process.Folder().Write("log", "");
    LogInit("log");
    LogSetLimits(limit, 1);
    WriteBytes(kLimit + 1);
    LogRotate();
    LogInfo("more");
    EXPECT_EQ(Text().size(), kLimit + 1 + (kHead + "INFO more\n").size());
    EXPECT_EQ(Files(), Names{"log"});
  }
}

TEST_F(LogBackups, ANewLogHasItsOwnLimitsAgain) {
  LogInit("log");
  LogSetLimits(1, 1);
  LogResetForTest();
  LogSetLimits(1, 1);  // without a log
  LogInit("log");
  WriteBytes(kLimit);
  EXPECT_EQ(Text().size(), kLimit);
  LogInfo("over");
  EXPECT_EQ(Text(), "");
  EXPECT_EQ(Files(), Names{"log"});
}

}  // namespace
}  // namespace corvalint
