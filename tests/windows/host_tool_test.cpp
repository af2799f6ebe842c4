// The console host as people and their programs start it: what it prints, and its exit codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "harness/temp_folder.h"
#include "windows/support/host_tool.h"

namespace corvalint::windows_test {
namespace {

using harness::DeskControl;
using harness::Json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

void LayOutKeysAndSynth(DeskControl& control) {
  control.AddInput("Kl\xE4vier");
  control.AddInput("Twin");
  control.AddOutput("Synth");
  control.AddOutput("Twin");
}

Ended RunAtDesk(const std::vector<std::string>& arguments) {
  return HostTool(arguments, {}, LayOutKeysAndSynth).End();
}

// Runs it where nothing but its own folder is needed.
Ended RunAlone(const std::vector<std::string>& arguments) {
  return HostTool(arguments, WithoutDesk()).End();
}

// Runs it with its standard output as the shell opens it.
Ended RunWithOutput(const std::string& openThree, const std::string& arguments) {
  const harness::TempFolder folder;
  harness::MakeWinePrefix(folder.Path() / "prefix", {});
  harness::Process::Setup setup;
  const std::string program = (harness::WindowsBuildTree() / "corvalint-host.exe").string();
  setup.command = {"bash", "-c", openThree + "; exec wine '" + program + "' " + arguments + " >&3"};
  setup.environment = harness::WineEnvironment(folder.Path() / "prefix");
  harness::Process process(setup);
  const std::optional<int> code = process.WaitForExit(kPatience);
  return {code.value_or(-1), process.Output(), WithLineFeeds(process.Errors())};
}

void ExpectNobodyTakesOutput(const std::string& openThree, const std::string& arguments) {
  SCOPED_TRACE(openThree + "; " + arguments);
  const Ended ended = RunWithOutput(openThree, arguments);
  EXPECT_EQ(ended.exitCode, 6);
  EXPECT_THAT(ended.err, EndsWith("corvalint-host: nobody takes the output\n"));
}

TEST(HostTool, ListsOnceAndEnds) {
  const Ended ended = RunAtDesk({"list"});
  EXPECT_EQ(ended.exitCode, 0);
  EXPECT_EQ(ended.err, "");
  EXPECT_THAT(ended.out, MatchesRegex("Sources\n"
                                      " +-?[0-9]+  off  available    Kl\xC3\xA4vier\n"
                                      " +-?[0-9]+  off  available    Twin\n"
                                      "Destinations\n"
                                      " +-?[0-9]+  off  available    Synth\n"
                                      " +-?[0-9]+  off  available    Twin\n"));
}

TEST(HostTool, ListsInOneDocument) {
  const Ended ended = RunAtDesk({"list", "--json"});
  EXPECT_EQ(ended.exitCode, 0);
  const std::vector<Json> documents = DocumentsOf(ended.out);
  ASSERT_THAT(documents, SizeIs(1));
  EXPECT_EQ(documents[0].at("kind"), "list");
  EXPECT_EQ(documents[0].at("devices"), 0);
  ASSERT_THAT(documents[0].at("sources"), SizeIs(2));
  EXPECT_EQ(documents[0].at("sources")[0].at("name"), "Kl\xC3\xA4vier");
  EXPECT_EQ(documents[0].at("sources")[0].at("nameHex"), "4b6ce476696572");
  EXPECT_EQ(documents[0].at("destinations")[1].at("position"), 1);
}

TEST(HostTool, WhatIsSwitchedOnStaysOnAndIsWatched) {
  int keys = 0;
  HostTool tool({"on", "Keys", "--json"}, {},
                [&](DeskControl& control) { keys = control.AddInput("Keys"); });
  ASSERT_TRUE(tool.Control().WaitForInputStarted(keys));
  const int late = tool.Control().AddOutput("Late");
  ASSERT_TRUE(tool.WaitForOutput("\"change\":\"came\""));
  tool.Control().RemoveInput(keys);
  ASSERT_TRUE(tool.WaitForOutput("\"change\":\"went\""));
  tool.Control().RemoveOutput(late);
  tool.GetProcess().Kill();
  const std::vector<Json> documents = DocumentsOf(tool.GetProcess().Output());
  ASSERT_THAT(documents.size(), testing::Ge(4u));
  EXPECT_EQ(documents[0].at("kind"), "switched");
  EXPECT_EQ(documents[0].at("on"), true);
  EXPECT_EQ(documents[1].at("kind"), "list");
  EXPECT_EQ(documents[1].at("sources")[0].at("on"), true);
  EXPECT_EQ(documents[2].at("name"), "Late");
  EXPECT_EQ(documents[2].at("side"), "destination");
  EXPECT_EQ(documents[3].at("name"), "Keys");
}

TEST(HostTool, WhatIsToggledOnStaysOnAndIsWatched) {
  int keys = 0;
  HostTool tool({"toggle", "Keys"}, {},
                [&](DeskControl& control) { keys = control.AddInput("Keys"); });
  ASSERT_TRUE(tool.Control().WaitForInputStarted(keys));
  ASSERT_TRUE(tool.WaitForOutput(" connected"));
  EXPECT_THAT(WithLineFeeds(tool.GetProcess().Output()),
              StartsWith("source \"Keys\" is on\nCtrl-C ends the bridge.\n"));
  tool.Control().AddOutput("Late");
  EXPECT_TRUE(tool.WaitForOutput("destination \"Late\" came"));
  tool.GetProcess().Kill();
}

TEST(HostTool, CountsADeviceThatIsAttached) {
  device::SimulatedDevice app;
  HostTool tool({"clients"}, {}, [&](DeskControl& control) {
    harness::DeviceSetup setup;
    setup.identifier = "ipad";
    setup.tcpPort = app.Port();
    setup.connectionId = app.Port();
    control.SetDevice("ipad", setup);
    control.Attach("ipad");
  });
  const Ended ended = tool.End();
  EXPECT_EQ(ended.exitCode, 0);
  EXPECT_EQ(ended.out, "1 device connected\n");
  EXPECT_EQ(ended.err, "");
}

TEST(HostTool, OffOfWhatIsOffIsDone) {
  const Ended ended = RunAtDesk({"off", "Synth"});
  EXPECT_EQ(ended.exitCode, 0);
  EXPECT_EQ(ended.out, "destination \"Synth\" is off\n");
}

TEST(HostTool, AnEndpointThatIsNotThereIsFour) {
  const Ended ended = RunAtDesk({"on", "4711"});
  EXPECT_EQ(ended.exitCode, 4);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err, "corvalint-host: no endpoint has the id or name 4711\n");
}

TEST(HostTool, ANameOfTwoEndpointsIsFive) {
  const Ended ended = RunAtDesk({"on", "Twin"});
  EXPECT_EQ(ended.exitCode, 5);
  EXPECT_THAT(ended.err, MatchesRegex("corvalint-host: Twin is a source and a destination: .*\n"));
  EXPECT_EQ(ended.out, "");
}

TEST(HostTool, ADeviceThatCannotBeOpenedIsOne) {
  const Ended ended = HostTool({"on", "destination", "Synth"}, {}, [](DeskControl& control) {
                        LayOutKeysAndSynth(control);
                        control.Fail("midiOutOpen", 4);
                      }).End();
  EXPECT_EQ(ended.exitCode, 1);
  EXPECT_EQ(ended.err, "corvalint-host: destination \"Synth\" could not be opened\n");
}

TEST(HostTool, WatchEndsWhenItsTimeIsOver) {
  const Ended ended = RunAtDesk({"watch", "0"});
  EXPECT_EQ(ended.exitCode, 0);
  EXPECT_THAT(ended.out, MatchesRegex("..:..:..  0 devices connected\n"));
}

TEST(HostTool, CommandsOnStandardInputEndWithTheFirstFailure) {
  HostTool tool({}, {}, LayOutKeysAndSynth);
  tool.GetProcess().Write("on source Twin\non Twin\ndance\nlist\nquit\n");
  const Ended ended = tool.End();
  EXPECT_EQ(ended.exitCode, 5);
  EXPECT_THAT(ended.out, StartsWith("source \"Twin\" is on\nSources\n"));
  EXPECT_THAT(ended.err, HasSubstr("unknown command dance; help says more\n"));
}

TEST(HostTool, ACommandLineThatMakesNoSenseIsTwoAndNeedsNoLibrary) {
  harness::DeskOptions bare = WithoutDesk();
  bare.files.clear();
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"dance"},
                                             {"--jsn"},
                                             {"on"},
                                             {"list", "all"},
                                             {"watch", "soon"},
                                             {"list", "--wait=1"}}) {
    const Ended ended = HostTool(arguments, bare).End();
    EXPECT_EQ(ended.exitCode, 2) << arguments[0];
    EXPECT_EQ(ended.out, "") << arguments[0];
    EXPECT_THAT(ended.err, MatchesRegex("corvalint-host: .*; --help says more\n")) << arguments[0];
  }
}

TEST(HostTool, ErrorsAreDocumentsToo) {
  const Ended ended = RunAlone({"dance", "--json"});
  EXPECT_EQ(ended.exitCode, 2);
  EXPECT_EQ(ended.out,
            R"({"kind":"error","exit":2,"text":"unknown command dance; --help says more"})"
            "\n");
  EXPECT_EQ(ended.err, "");
}

TEST(HostTool, AMissingLibraryIsThree) {
  harness::DeskOptions bare = WithoutDesk();
  bare.files.clear();
  const Ended ended = HostTool({"list"}, bare).End();
  EXPECT_EQ(ended.exitCode, 3);
  EXPECT_EQ(ended.out, "");
  EXPECT_THAT(ended.err, AllOf(StartsWith("corvalint-host: "), EndsWith(")\n"),
                               HasSubstr("\\corvalint_wrapper.dll cannot be loaded: ")));
  EXPECT_EQ(std::ranges::count(ended.err, '\n'), 1);

  const Ended script = HostTool({"--json"}, bare).End();
  EXPECT_EQ(script.exitCode, 3);
  EXPECT_THAT(script.err, StartsWith(R"({"error":")"));
}

TEST(HostTool, AnotherLibraryOfThatNameIsThree) {
  harness::DeskOptions options = WithoutDesk();
  const harness::TempFolder folder;
  const auto other = folder.Path() / "corvalint_wrapper.dll";
  std::filesystem::copy_file(harness::WindowsBuildTree() / "desk/apple/ASL.dll", other);
  options.files = {other};  // an absolute path stands for itself
  const Ended ended = HostTool({"list"}, options).End();
  EXPECT_EQ(ended.exitCode, 3);
  EXPECT_EQ(ended.err,
            "corvalint-host: corvalint_wrapper.dll has no export corvalintServerStart: it is "
            "another library\n");
}

TEST(HostTool, AFileThatIsNoLibraryIsThree) {
  const harness::TempFolder folder;
  const auto text = folder.Path() / "corvalint_wrapper.dll";
  std::ofstream(text) << "no library\n";
  harness::DeskOptions options = WithoutDesk();
  options.files = {text};
  const Ended ended = HostTool({"list"}, options).End();
  EXPECT_EQ(ended.exitCode, 3);
  EXPECT_THAT(ended.err, HasSubstr("\\corvalint_wrapper.dll cannot be loaded: "));
}

TEST(HostTool, HelpAndVersionNeedNothing) {
  harness::DeskOptions bare = WithoutDesk();
  bare.files.clear();
  const Ended help = HostTool({"list", "--help"}, bare).End();
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_THAT(help.out, AllOf(StartsWith("NAME\n"), HasSubstr("\nEXIT STATUS\n")));
  const Ended version = HostTool({"--version"}, bare).End();
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_THAT(version.out, MatchesRegex("corvalint-host [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(HostTool, OutputThatNobodyTakesIsSix) {
  for (const char* arguments : {"--help", "list", "dance --json", "watch", "watch --json"}) {
    ExpectNobodyTakesOutput("exec 3> >(exec true); wait $!", arguments);  // the reader has gone
  }
  for (const char* arguments : {"--help", "list", "watch --json"}) {
    ExpectNobodyTakesOutput("exec 3>/dev/full", arguments);
  }
}

}  // namespace
}  // namespace corvalint::windows_test
