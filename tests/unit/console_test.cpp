#include "service/console.h"

#include <gtest/gtest.h>

#include <string>

#include "service/log.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/fake_process.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::ConsoleCapture;
using test::FakeProcess;

TEST(ConsolePrint, PrintsWhatItsFormatGivesAndNothingElse) {
  ConsoleCapture console;
  ConsolePrint("notification(%u)\n", 1u);
  EXPECT_EQ(console.Take(), "notification(1)\n");
  ConsolePrint("found source with unique_id: %d || %s\n", -7, "Keys");
  EXPECT_EQ(console.Take(), "found source with unique_id: -7 || Keys\n");
}

TEST(ConsolePrint, LeavesNothingInABufferEvenWithoutALineEnd) {
  ConsoleCapture console;
  ConsolePrint("true");
  EXPECT_EQ(console.Text(), "true");
  ConsolePrint("false");
  EXPECT_EQ(console.Text(), "truefalse");
}

TEST(ConsolePrint, TakesNoArgumentForAFormat) {
  ConsoleCapture console;
  ConsolePrint("%s\n", "100%s %n\r\n\x1B[2J");
  EXPECT_EQ(console.Text(), "100%s %n\r\n\x1B[2J\n");
}

TEST(ConsolePrint, WritesNothingToTheLog) {
  ConsoleCapture console;
  CallLog calls;
  FakeProcess process(calls);
  LogResetForTest();
  LogInit("log");
  ConsolePrint("Finished\n");
  LogResetForTest();
  EXPECT_EQ(console.Text(), "Finished\n");
  EXPECT_EQ(process.Folder().Read("log"), "");
}

TEST(ConsoleLines, KeepsLinesBackUntilTheyArePrintedInOrder) {
  ConsoleCapture console;
  ConsoleLines lines;
  lines.Add("virtual source: %s\n", "Port");
  lines.Add("NOT a virtual source: %s\n", "Keys");
  EXPECT_EQ(console.Text(), "");
  lines.Print();
  EXPECT_EQ(console.Text(), "virtual source: Port\nNOT a virtual source: Keys\n");
}

TEST(ConsoleLines, PrintsEachLineOnce) {
  ConsoleCapture console;
  {
    ConsoleLines lines;
    lines.Add("first\n");
    lines.Print();
    lines.Print();
    lines.Add("second\n");
    lines.Print();
  }
  EXPECT_EQ(console.Text(), "first\nsecond\n");
}

TEST(ConsoleLines, PrintsTheRestAtTheEndOfItsLife) {
  ConsoleCapture console;
  {
    ConsoleLines lines;
    lines.Add("left %d\n", 1);
    EXPECT_EQ(console.Text(), "");
  }
  EXPECT_EQ(console.Text(), "left 1\n");
}

TEST(ConsoleLines, KeepsALineOfAnyLengthWhole) {
  ConsoleCapture console;
  const std::string name(100000, 'n');
  ConsoleLines lines;
  lines.Add("is virtual destination: %s\n", name.c_str());
  lines.Print();
  EXPECT_EQ(console.Text(), "is virtual destination: " + name + "\n");
}

TEST(ConsoleLines, TakesNoKeptLineForAFormat) {
  ConsoleCapture console;
  ConsoleLines lines;
  lines.Add("%s", "50%s%n\n");
  lines.Add("%s", "");
  lines.Print();
  EXPECT_EQ(console.Text(), "50%s%n\n");
}

}  // namespace
}  // namespace corvalint
