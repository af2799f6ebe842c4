#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "service/log.h"
#include "support/log_fixture.h"

// The log's file: how it is opened, kept below its limit and shared by threads.

namespace corvalint {
namespace {

using test::CallLog;
using test::FakeClock;
using test::FakeProcess;
using test::kHead;
using test::kLimit;
using test::kSecond;
using test::LogTest;
using Calls = CallLog::Calls;

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

// More bytes than a 32-bit count or position can hold; the file has holes and takes no space.
TEST_F(LogTest, TruncatesAtTheStartAFileOfSeveralGibibytes) {
  for (const std::uintmax_t gibibytes : {2u, 3u, 4u, 5u}) {
    SCOPED_TRACE(gibibytes);
    LogResetForTest();
    const std::string path = process.Folder().PathOf("log");
    process.Folder().Write("log", "");
    std::filesystem::resize_file(path, gibibytes << 30);
    calls.Take();
    LogInit("log");
    EXPECT_EQ(calls.Take(), (Calls{"openFile(log, r)", "openFile(log, w)"}));
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
  }
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
