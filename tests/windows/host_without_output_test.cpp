// A host that has no standard output, as a program with windows has none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/bridge.h"

namespace corvalint::windows_test {
namespace {

TEST(HostWithoutOutput, StartsListsAndSwitches) {
  harness::DeskOptions options;
  options.program = "tests/windows/corvalint-host-without-output.exe";
  options.arguments = {};
  harness::Desk desk(options);
  harness::DeskControl& control = desk.Control();
  control.AddInput("Keys");
  control.AddOutput("Synth");
  control.Hold("midiInClose");
  control.Hold("midiOutClose");
  control.Open();
  ASSERT_TRUE(control.WaitForHeld("midiInClose", kPatience));
  EXPECT_EQ(control.CallCounts()["midiInStart"], 1u);
  control.Release("midiInClose");
  ASSERT_TRUE(control.WaitForHeld("midiOutClose", kPatience));
  EXPECT_EQ(control.CallCounts()["midiOutOpen"], 1u);
  EXPECT_THAT(control.Violations(), testing::IsEmpty());
  control.Release("midiOutClose");
  EXPECT_EQ(desk.GetHost().GetProcess().WaitForExit(kPatience), 0);
  EXPECT_THAT(desk.Log(), testing::HasSubstr(" INFO LoadUsbLibraries"));
}

}  // namespace
}  // namespace corvalint::windows_test
