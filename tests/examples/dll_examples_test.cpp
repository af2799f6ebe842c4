// The examples in C and C++, run with the shipped DLL under Wine at the simulated desk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

#include "examples/wait_for_end.h"
#include "harness/desk.h"

namespace corvalint {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

// A scan comes every five seconds, on a machine that may be busy.
constexpr std::chrono::milliseconds kPatience{60000};

// A desk with an example as its host. `Open` comes when the devices are laid out.
harness::DeskOptions With(const std::string& program, const std::vector<std::string>& arguments) {
  harness::DeskOptions options;
  options.program = "examples/" + program;
  options.arguments = arguments;
  return options;
}

bool WaitForWords(harness::Desk& desk, const std::string& words) {
  return desk.GetHost().GetProcess().WaitForErrors(
      [&](const std::string& all) { return all.find(words) != std::string::npos; }, kPatience);
}

// The example's own lines, with line ends of one byte.
std::string Said(harness::Desk& desk) {
  std::string text = desk.GetHost().GetProcess().Errors();
  std::erase(text, '\r');
  return text;
}

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The call is held until it was seen: the example ends soon after it, and the desk with it.
void ExpectCall(harness::DeskControl& control, const std::string& function) {
  EXPECT_TRUE(control.WaitForHeld(function, kPatience));
  try {
    control.Release(function);
  } catch (const std::runtime_error&) {
    // The desk was gone before it could answer.
  }
}

TEST(CExample, ListsPollsAndSwitchesOn) {
  harness::Desk desk(With("poll.exe", {"600", "Keys", "Synth", "Late"}));
  harness::DeskControl& control = desk.Control();
  const int keys = control.AddInput("Keys");
  const int pad = control.AddInput("Pad");
  const int synth = control.AddOutput("Synth");
  control.Open();
  ASSERT_TRUE(WaitForWords(desk, "destination on: Synth")) << Said(desk);
  ASSERT_TRUE(WaitForWords(desk, ": Pad, available")) << Said(desk);
  EXPECT_TRUE(control.WaitForInputStarted(keys));
  EXPECT_TRUE(control.WaitForOutputOpen(synth));
  EXPECT_THAT(Lines(Said(desk)),
              testing::UnorderedElementsAre(
                  MatchesRegex("source -?[0-9]+: Keys, available"), "source on: Keys",
                  MatchesRegex("source -?[0-9]+: Pad, available"),
                  MatchesRegex("destination -?[0-9]+: Synth, available"), "destination on: Synth"));

  const int late = control.AddInput("Late");
  control.RemoveInput(pad);
  EXPECT_TRUE(WaitForWords(desk, "source gone: Pad")) << Said(desk);
  EXPECT_TRUE(WaitForWords(desk, "source on: Late")) << Said(desk);
  EXPECT_TRUE(control.WaitForInputStarted(late));
  EXPECT_THAT(control.Violations(), testing::IsEmpty());
}

TEST(CExample, TellsWhatCannotBeOpened) {
  harness::Desk desk(With("poll.exe", {"600", "Keys"}));
  desk.Control().AddInput("Keys");
  desk.Control().Fail("midiInOpen", 4);
  desk.Control().Open();
  EXPECT_TRUE(WaitForWords(desk, "source cannot be opened: Keys")) << Said(desk);
}

TEST(CExample, EndsAfterItsTime) {
  harness::DeskOptions options = With("poll.exe", {"1"});
  // Nothing of the desk, which would hold up the library until it is laid out.
  options.winmm = false;
  options.supportKey = false;
  harness::Desk desk(options);
  EXPECT_EQ(WaitForEnd(desk.GetHost().GetProcess(), kPatience), 0);
  // Wine's own winmm answers then, and may know devices of this machine.
  EXPECT_THAT(Said(desk), testing::ContainsRegex("sources: [0-9]+, destinations: [0-9]+\n"));
}

TEST(CppExample, KeepsEndpointsOnForItsTime) {
  // One device that is both, as most are.
  harness::Desk desk(With("switch_on.exe", {"1", "Keys"}));
  harness::DeskControl& control = desk.Control();
  const int input = control.AddInput("Keys");
  const int output = control.AddOutput("Keys");
  control.Hold("midiInClose");
  control.Hold("midiOutClose");
  control.Open();
  EXPECT_TRUE(control.WaitForInputStarted(input, kPatience));
  EXPECT_TRUE(control.WaitForOutputOpen(output, kPatience));
  ExpectCall(control, "midiInClose");
  ExpectCall(control, "midiOutClose");
  EXPECT_EQ(WaitForEnd(desk.GetHost().GetProcess(), kPatience), 0);
  EXPECT_THAT(Said(desk), MatchesRegex("on: Keys \\(-?[0-9]+\\)\non: Keys \\(-?[0-9]+\\)\n"
                                       "all off\n"));
}

TEST(CppExample, SwitchesOffWhatWasOnWhenALaterNameFails) {
  harness::Desk desk(With("switch_on.exe", {"600", "Keys", "Pad"}));
  harness::DeskControl& control = desk.Control();
  control.AddInput("Keys");
  control.AddInput("Pad");
  control.Fail("midiInOpen", 4, {.from = 2});
  control.Hold("midiInClose");
  control.Open();
  ExpectCall(control, "midiInClose");
  EXPECT_EQ(WaitForEnd(desk.GetHost().GetProcess(), kPatience), 1);
  EXPECT_THAT(Said(desk), HasSubstr("the MIDI device cannot be opened\n"));
}

TEST(CppExample, RefusesACommandLineWithoutNames) {
  harness::DeskOptions options = With("switch_on.exe", {"1"});
  // It ends before it calls anything, so nobody waits for the desk.
  options.winmm = false;
  options.supportKey = false;
  harness::Desk desk(options);
  EXPECT_EQ(WaitForEnd(desk.GetHost().GetProcess(), kPatience), 2);
  EXPECT_EQ(Said(desk), "usage: switch_on SECONDS NAME...\n");
}

}  // namespace
}  // namespace corvalint
