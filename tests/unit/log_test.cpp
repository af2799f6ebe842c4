#include "service/log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/thread.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_process.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::ConsoleCapture;
using test::FakeClock;
using test::FakeProcess;
using Calls = CallLog::Calls;

constexpr std::size_t kLimit = 2048 * 1024;
constexpr std::size_t kTemplateSize = 32767;
constexpr std::int64_t kSecond = 10'000'000;
// Date, time and thread of every line here.
const std::string kHead = "2026-11-16 01:48:06 [4312] ";

class LogTest : public testing::Test {
 protected:
  LogTest() {
    static constexpr ThreadApi kApi{
        .create = nullptr, .terminate = nullptr, .close = nullptr, .currentId = [] {
          return writerId;
        }};
    writerId = 4312;
    Install<ThreadApi>(&kApi);
    LogResetForTest();
  }
  ~LogTest() override {
    LogResetForTest();
    Install<ThreadApi>(nullptr);
  }

  std::string Text() const { return process.Folder().Read("log"); }
  void Fill(std::size_t size) const { process.Folder().Write("log", std::string(size, 'x')); }
  // Writes one line of that many bytes, line feed included.
  static void WriteBytes(std::size_t size) {
    const std::size_t rest = size - (kHead + "INFO \n").size();
    LogInfo("%s", std::string(rest, 'y').c_str());
  }

  static inline std::uint32_t writerId = 0;
  ConsoleCapture console;
  CallLog calls;
  FakeClock clock;
  FakeProcess process{calls};
};

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

// --- opening

TEST_F(LogTest, ASecondInitialisationChangesNothing) {
  LogInit("log");
  LogSetThreshold(kLogDebug);
  calls.Take();
  LogInit("other");
  EXPECT_EQ(calls.Take(), Calls{});
  LogDebug("still here");
  EXPECT_EQ(process.Folder().Names(), std::vector<std::string>{"log"});
  EXPECT_EQ(Text(), kHead + "DEBUG still here\n");
}

TEST_F(LogTest, KeepsItsOwnCopyOfThePath) {
  std::string path = "log";
  LogInit(path.c_str());
  path = "xxx";
  LogRotate();
  EXPECT_EQ(process.Folder().Names(), std::vector<std::string>{"log"});
}

TEST_F(LogTest, AppendsToTheLinesOfAnEarlierRun) {
  process.Folder().Write("log", "before\n");
  LogInit("log");
  LogInfo("after");
  EXPECT_EQ(Text(), "before\n" + kHead + "INFO after\n");
}

TEST_F(LogTest, MeasuresTheFileAndThenOpensItForAppending) {
  LogInit("log");
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, a+)"}));
}

TEST_F(LogTest, RotatingASmallLogKeepsItsLines) {
  LogInit("log");
  LogInfo("one");
  calls.Take();
  LogRotate();
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, a+)"}));
  LogInfo("two");
  EXPECT_EQ(Text(), kHead + "INFO one\n" + kHead + "INFO two\n");
}

// --- the size limit

TEST_F(LogTest, AppendsAtTheStartToAFileOfExactlyTheLimit) {
  Fill(kLimit);
  LogInit("log");
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, a+)"}));
  EXPECT_EQ(Text().size(), kLimit);
}

TEST_F(LogTest, TruncatesAtTheStartAFileOfOneByteMore) {
  Fill(kLimit + 1);
  LogInit("log");
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, w)"}));
  EXPECT_EQ(Text(), "");
  LogInfo("fresh");
  EXPECT_EQ(Text(), kHead + "INFO fresh\n");
}

TEST_F(LogTest, ALineThatReachesTheLimitStays) {
  Fill(kLimit - 100);
  LogInit("log");
  calls.Take();
  WriteBytes(100);
  EXPECT_EQ(Text().size(), kLimit);
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(LogTest, ALineThatPassesTheLimitTruncatesTheFileAndGoesWithIt) {
  Fill(kLimit - 100);
  LogInit("log");
  calls.Take();
  WriteBytes(101);
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, w)"}));
  EXPECT_EQ(Text(), "");
  LogInfo("fresh");
  EXPECT_EQ(Text(), kHead + "INFO fresh\n");
}

TEST_F(LogTest, CountsTheBytesOfEveryLine) {
  Fill(kLimit - 300);
  LogInit("log");
  for (int i = 0; i < 3; ++i) WriteBytes(100);
  EXPECT_EQ(Text().size(), kLimit);
  WriteBytes(100);
  EXPECT_EQ(Text(), "");
}

TEST_F(LogTest, CountsAnewAfterItWasTruncated) {
  LogInit("log");
  for (int i = 0; i < 2; ++i) {
    WriteBytes(kLimit);
    EXPECT_EQ(Text().size(), kLimit);
    LogInfo("over");
    EXPECT_EQ(Text(), "");
  }
}

TEST_F(LogTest, MakesNoNumberedCopies) {
  Fill(kLimit + 1);
  LogInit("log");
  WriteBytes(kLimit + 1);
  LogInfo("last");
  EXPECT_EQ(process.Folder().Names(), std::vector<std::string>{"log"});
  EXPECT_EQ(Text(), kHead + "INFO last\n");
}

// --- a file that cannot be opened

TEST_F(LogTest, WritesNothingWhileItsFileCannotBeOpened) {
  process.RefuseFiles(true);
  LogInit("log");
  LogError("lost");
  EXPECT_EQ(process.Folder().Names(), std::vector<std::string>{});
  EXPECT_EQ(console.Text(), "");
}

TEST_F(LogTest, TriesAgainOnlyAfterFiveSeconds) {
  process.RefuseFiles(true);
  LogInit("log");
  process.RefuseFiles(false);
  calls.Take();
  clock.Advance(5 * kSecond);
  LogError("lost");
  EXPECT_EQ(calls.Take(), Calls{});
  clock.Advance(1);
  LogError("kept");
  EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, a+)"}));
  EXPECT_EQ(Text(), kHead + "ERROR kept\n");
}

TEST_F(LogTest, WaitsAnewAfterEachAttempt) {
  process.RefuseFiles(true);
  LogInit("log");
  clock.Advance(5 * kSecond + 1);
  LogError("lost");
  calls.Take();
  LogError("lost");
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(LogTest, TriesAgainAtOnceWhenTheCounterWentBack) {
  clock.SetTicks(100 * kSecond);
  process.RefuseFiles(true);
  LogInit("log");
  process.RefuseFiles(false);
  clock.SetTicks(100 * kSecond - 1);
  LogError("kept");
  EXPECT_EQ(Text(), kHead + "ERROR kept\n");
}

TEST_F(LogTest, ALineAboveTheThresholdIsNoReasonToTryAgain) {
  process.RefuseFiles(true);
  LogInit("log");
  calls.Take();
  clock.Advance(60 * kSecond);
  LogDebug("hidden");
  EXPECT_EQ(calls.Take(), Calls{});
}

TEST_F(LogTest, ARotationBringsTheFileBackAtOnce) {
  process.RefuseFiles(true);
  LogInit("log");
  process.RefuseFiles(false);
  LogRotate();
  LogError("kept");
  EXPECT_EQ(Text(), kHead + "ERROR kept\n");
}

// --- several threads

void OnThreads(int count, const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back([&body, i] { body(i); });
  for (std::thread& thread : threads) thread.join();
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    lines.push_back(text.substr(at, end - at));
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return lines;
}

class LogThreadsTest : public testing::Test {
 protected:
  LogThreadsTest() { LogResetForTest(); }
  ~LogThreadsTest() override { LogResetForTest(); }

  CallLog calls;
  FakeClock clock;
  FakeProcess process{calls};
};

TEST_F(LogThreadsTest, LosesAndMixesNoLineWhileTheFileIsReopened) {
  constexpr int kWriters = 3;
  constexpr int kLines = 300;
  LogInit("log");
  OnThreads(kWriters + 1, [](int number) {
    for (int i = 0; i < kLines; ++i) {
      if (number == kWriters) {
        LogRotate();
      } else {
        LogInfo("writer %d line %d", number, i);
      }
    }
  });
  std::vector<int> next(kWriters, 0);
  for (const std::string& line : LinesOf(process.Folder().Read("log"))) {
    const std::size_t text = line.find("] INFO writer ");
    ASSERT_NE(text, std::string::npos) << line;
    const int writer = line.at(text + 14) - '0';
    ASSERT_GE(writer, 0);
    ASSERT_LT(writer, kWriters);
    int& expected = next[static_cast<std::size_t>(writer)];
    ASSERT_EQ(line.substr(text + 15), " line " + std::to_string(expected));
    ++expected;
  }
  EXPECT_EQ(next, std::vector<int>(kWriters, kLines));
}

TEST_F(LogThreadsTest, IsMadeOnceHoweverManyInitialiseIt) {
  for (int round = 0; round < 20; ++round) {
    LogResetForTest();
    std::atomic<int> ready{0};
    OnThreads(4, [&](int number) {
      ++ready;
      while (ready < 4) std::this_thread::yield();
      LogInit(("log" + std::to_string(round) + "." + std::to_string(number)).c_str());
    });
    ASSERT_EQ(process.Folder().Names().size(), static_cast<std::size_t>(round + 1));
  }
}

}  // namespace
}  // namespace corvalint
