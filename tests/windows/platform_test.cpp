// The Windows side of the seam, which a program of its own checks under Wine.
#include <gtest/gtest.h>

#include "windows/support/bridge.h"

namespace corvalint::windows_test {
namespace {

TEST(Platform, TheSystemsTablesDoWhatTheirHeadersSay) {
  harness::DeskOptions options;
  options.program = "tests/windows/corvalint-platform-selftest.exe";
  options.arguments = {};
  options.files = {"corvalint_wrapper.dll"};
  options.winmm = false;
  options.supportKey = false;
  options.deviceKey = false;
  harness::Desk desk(options);
  harness::Process& selftest = desk.GetHost().GetProcess();
  EXPECT_EQ(selftest.WaitForExit(kPatience), 0) << selftest.Output() << selftest.Errors();
  EXPECT_NE(selftest.Output().find("0 of "), std::string::npos) << selftest.Output();
}

}  // namespace
}  // namespace corvalint::windows_test
