// The messages per second that the console host's watch counts at the ports of apps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/host_tool.h"

namespace corvalint::windows_test {
namespace {

using harness::DeskControl;
using harness::Json;
using testing::IsEmpty;

constexpr std::int32_t kAppId = 7;

// What the documents say was counted, all seconds together. The last line may be unfinished.
std::uint64_t MessagesIn(const std::string& output) {
  const std::string text = WithLineFeeds(output);
  std::uint64_t sum = 0;
  for (const Json& document : DocumentsOf(text.substr(0, text.rfind('\n') + 1))) {
    if (document.at("kind") != "midi") continue;
    EXPECT_EQ(document.at("name"), "App");
    sum += document.at("messages").get<std::uint64_t>();
  }
  return sum;
}

// Plays and waits until all of it, with what was played before, has been counted.
void PlayAndWait(HostTool& tool, PluggedDevice& ipad, std::uint64_t notes, std::uint64_t all) {
  for (std::uint64_t note = 0; note < notes; ++note) {
    ASSERT_TRUE(ipad.App().SendMidi("App", kAppId, {0x90, static_cast<std::uint8_t>(note), 100}));
  }
  ASSERT_TRUE(tool.GetProcess().WaitForOutput(
      [all](const std::string& output) { return MessagesIn(output) >= all; }, kPatience));
  EXPECT_EQ(MessagesIn(tool.GetProcess().Output()), all);
}

TEST(HostMidi, WatchShowsEveryNoteThatADevicePlays) {
  int keys = 0;
  HostTool tool({"watch", "--json"}, {},
                [&](DeskControl& control) { keys = control.AddInput("Keys"); });
  PluggedDevice ipad(tool.Control(), "ipad");
  ipad.Attach();
  const harness::Port port = ipad.PublishSource("App", kAppId);
  ASSERT_TRUE(tool.Control().WaitForInputStarted(port.inputId, kPatience));
  PlayAndWait(tool, ipad, 120, 120);

  // The port goes and comes again, faster than the host looks.
  ASSERT_TRUE(ipad.App().WithdrawSource("App", kAppId));
  ASSERT_TRUE(ipad.App().AnnounceSource("App", kAppId));
  ASSERT_TRUE(tool.Control().WaitForPortClosed(port.id, kPatience));
  const auto again = tool.Control().WaitForPort(u"App", kPatience);
  ASSERT_TRUE(again.has_value());
  ASSERT_NE(again->id, port.id);
  ASSERT_TRUE(tool.Control().WaitForInputStarted(again->inputId, kPatience));
  PlayAndWait(tool, ipad, 7, 127);

  // The keyboard is the bridge's to open.
  EXPECT_EQ(tool.Control().CallCounts()["midiInOpen"], 2u);
  EXPECT_EQ(tool.Control().Send("input-state " + std::to_string(keys)), "0");
  EXPECT_THAT(tool.Control().Violations(), IsEmpty());
  tool.GetProcess().Kill();
}

TEST(HostMidi, WatchSaysOnceThatAPortCannotBeOpened) {
  HostTool tool({"watch"}, {}, [](DeskControl& control) { control.Fail("midiInOpen", 4); });
  PluggedDevice ipad(tool.Control(), "ipad");
  ipad.Attach();
  ipad.PublishSource("App", kAppId);
  const std::string note =
      "  messages at \"App\" cannot be counted: its input cannot be opened (result 4)";
  ASSERT_TRUE(tool.WaitForOutput(note));
  tool.Control().AddInput("Late");
  ASSERT_TRUE(tool.WaitForOutput("source \"Late\" came"));
  const std::string output = tool.GetProcess().Output();
  EXPECT_EQ(output.find(note), output.rfind(note));
  EXPECT_EQ(tool.Control().CallCounts()["midiInOpen"], 1u);
  tool.GetProcess().Kill();
}

}  // namespace
}  // namespace corvalint::windows_test
