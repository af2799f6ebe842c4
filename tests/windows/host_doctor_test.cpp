// The doctor of the console host: each link of the chain is broken in turn at the desk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "harness/temp_folder.h"
#include "windows/support/host_tool.h"

namespace corvalint::windows_test {
namespace {

using harness::DeskControl;
using harness::DeskOptions;
using harness::Json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// What the doctor said, link by link, and in the end.
struct Diagnosis {
  int exitCode = -1;
  std::vector<Json> links;
  Json verdict;

  // "holds", "broken" or "unknown"; empty if there was no such link.
  std::string StateOf(const std::string& name) const { return Of(name, "state"); }
  std::string FoundAt(const std::string& name) const { return Of(name, "found"); }
  std::string Of(const std::string& name, const char* member) const {
    for (const Json& link : links) {
      if (link.at("link") == name) return link.at(member).get<std::string>();
    }
    return {};
  }
};

Diagnosis DiagnosisOf(const Ended& ended) {
  Diagnosis diagnosis;
  diagnosis.exitCode = ended.exitCode;
  diagnosis.links = DocumentsOf(ended.out);
  diagnosis.verdict = diagnosis.links.back();
  diagnosis.links.pop_back();
  return diagnosis;
}

// How long the doctor waits where it does not matter, and where things take their time to come.
constexpr const char* kNoWait = "--wait=1";
constexpr const char* kPatientWait = "--wait=8";

// The doctor's examination, without listening, of a desk with an input and an output. What breaks
// the chain is in the options, or done before the desk opens.
Diagnosis Examine(const char* wait, const DeskOptions& options = {},
                  const std::function<void(DeskControl&)>& layOut = {}) {
  HostTool tool({"doctor", "--json", "--listen=0", wait}, options, [&](DeskControl& control) {
    control.AddInput("Keys");
    control.AddOutput("Synth");
    if (layOut) layOut(control);
  });
  return DiagnosisOf(tool.End());
}

void ExpectBroken(const Diagnosis& diagnosis, const std::string& link, const std::string& found) {
  EXPECT_EQ(diagnosis.exitCode, 7);
  EXPECT_EQ(diagnosis.verdict.at("kind"), "verdict");
  EXPECT_EQ(diagnosis.verdict.at("broken"), link);
  EXPECT_EQ(diagnosis.verdict.at("exit"), 7);
  EXPECT_EQ(diagnosis.StateOf(link), "broken");
  EXPECT_THAT(diagnosis.FoundAt(link), HasSubstr(found));
  EXPECT_NE(diagnosis.Of(link, "advice"), "");
  EXPECT_EQ(diagnosis.verdict.at("advice"), diagnosis.Of(link, "advice"));
}

// An iOS device on the desk's cable. Its app announces a source when the bridge has connected.
struct AttachedDevice {
  device::SimulatedDevice app;

  void LayOut(DeskControl& control, harness::DeviceSetup setup = {}) {
    setup.identifier = "ipad";
    setup.tcpPort = app.Port();
    setup.connectionId = app.Port();
    control.SetDevice("ipad", setup);
    control.Attach("ipad");
  }
};

TEST(HostDoctor, AWholeChainIsToldLinkByLinkUntilANoteIsHeard) {
  AttachedDevice device;
  int keys = 0;
  HostTool tool({"doctor", "--json", "--listen=8", kPatientWait}, {}, [&](DeskControl& control) {
    keys = control.AddInput("Keys");
    device.LayOut(control);
  });
  ASSERT_TRUE(device.app.WaitForStream(1, kPatience));
  ASSERT_TRUE(device.app.AnnounceSource("App", 7));
  ASSERT_TRUE(tool.Control().WaitForInputStarted(keys));
  tool.Control().Inject(keys, {harness::ItemOf({0x90, 60, 100}), harness::ItemOf({0x80, 60, 0})});
  const auto port = tool.Control().WaitForPort(u"App");
  ASSERT_TRUE(port.has_value());
  ASSERT_TRUE(tool.Control().WaitForInputStarted(port->inputId));
  ASSERT_TRUE(device.app.SendMidi("App", 7, {0xB0, 1, 2}));
  const Diagnosis diagnosis = DiagnosisOf(tool.End());

  EXPECT_EQ(diagnosis.exitCode, 0);
  EXPECT_EQ(diagnosis.verdict, Json::parse(R"({"kind":"verdict","exit":0,"broken":null})"));
  std::vector<std::string> names;
  for (const Json& link : diagnosis.links) {
    names.push_back(link.at("link"));
    EXPECT_EQ(link.at("kind"), "link");
    EXPECT_EQ(link.at("state"), "holds") << link;
    EXPECT_EQ(link.at("advice"), "") << link;
  }
  EXPECT_THAT(names, ElementsAre("log", "winmm", "bridge", "support-folder", "asl",
                                 "core-foundation", "device-folder", "device-library",
                                 "port-library", "port-driver", "midi-devices", "device-service",
                                 "device", "connection", "app", "endpoints", "midi"));
  EXPECT_THAT(diagnosis.FoundAt("bridge"), HasSubstr("\\host\\corvalint_wrapper.dll, version "));
  EXPECT_THAT(diagnosis.FoundAt("asl"), EndsWith("\\apple\\ASL.dll, tells no version"));
  EXPECT_EQ(diagnosis.FoundAt("midi-devices"), "1 MIDI input, 0 MIDI outputs");
  EXPECT_EQ(diagnosis.FoundAt("device"), "1 device: ipad");
  EXPECT_EQ(diagnosis.FoundAt("endpoints"), "source \"App\"");
  EXPECT_EQ(diagnosis.FoundAt("midi"), "2 messages at \"Keys\", 1 message at \"App\"");
}

// What the doctor says of a folder that holds the program, the bridge and the stand-ins for the
// system's libraries, in which `damage` has broken something. There is no desk to ask.
std::string ExamineFolder(const std::function<void(const std::filesystem::path&)>& damage) {
  const harness::TempFolder temp;
  const auto host = temp.Path() / "host";
  std::filesystem::create_directories(host);
  for (const char* file : {"corvalint-host.exe", "corvalint_wrapper.dll", "desk/winmm.dll",
                           "desk/corvalint_desk.dll", "desk/teVirtualMIDI64.dll"}) {
    const auto source = harness::WindowsBuildTree() / file;
    std::filesystem::copy_file(source, host / source.filename());
  }
  damage(host);
  harness::MakeWinePrefix(temp.Path() / "prefix", {});
  harness::Process::Setup setup;
  setup.command = {"wine", (host / "corvalint-host.exe").string(), "doctor", "--listen=0"};
  setup.environment = harness::WineEnvironment(temp.Path() / "prefix");
  harness::Process process(setup);
  EXPECT_EQ(process.WaitForExit(kPatience), 7);
  return WithLineFeeds(process.Output());
}

TEST(HostDoctor, ALogThatCannotBeWritten) {
  std::string folder;
  const std::string out = ExamineFolder([&](const std::filesystem::path& host) {
    folder = harness::WindowsPath(host);
    std::filesystem::create_directories(host / "pellora.log");  // a folder is in its place
  });
  EXPECT_THAT(out, StartsWith("broken   log                 " + folder +
                              "\\pellora.log cannot be written: "));
  EXPECT_THAT(out, HasSubstr("\nholds    port-driver         has made a port and closed it\n"));
  EXPECT_THAT(out, HasSubstr("\nunknown  device-service      "));
  EXPECT_THAT(out, HasSubstr("\nThe first broken link is log: "));
  EXPECT_THAT(out, HasSubstr("\nWhat to do: put the program and the library into a folder"));
}

// The bridge needs winmm, so both are broken, and the one to mend is named.
TEST(HostDoctor, AWinmmThatCannotBeLoaded) {
  const std::string out = ExamineFolder(
      [](const std::filesystem::path& host) { std::ofstream(host / "winmm.dll") << "no library"; });
  EXPECT_THAT(out, HasSubstr("\nbroken   winmm               winmm.dll cannot be loaded: "));
  EXPECT_THAT(out, HasSubstr("\nbroken   bridge              "));
  EXPECT_THAT(out, HasSubstr("\nunknown  midi-devices        not asked: "));
  EXPECT_THAT(out, HasSubstr("\nThe first broken link is winmm: winmm.dll cannot be loaded: "));
  EXPECT_THAT(out, HasSubstr("\nWhat to do: take away any other winmm.dll from"));
}

TEST(HostDoctor, ABridgeThatIsMissing) {
  DeskOptions options;
  options.files.clear();
  const Diagnosis diagnosis = Examine(kNoWait, options);
  ExpectBroken(diagnosis, "bridge", "\\corvalint_wrapper.dll cannot be loaded: ");
  EXPECT_EQ(diagnosis.StateOf("device-library"), "holds");
  EXPECT_EQ(diagnosis.StateOf("device-service"), "unknown");
}

TEST(HostDoctor, ASupportFolderThatTheRegistryDoesNotName) {
  DeskOptions noKey;
  noKey.supportKey = false;
  Diagnosis diagnosis = Examine(kNoWait, noKey);
  ExpectBroken(diagnosis, "support-folder", "InstallDir is not there");
  EXPECT_EQ(diagnosis.StateOf("asl"), "unknown");
  EXPECT_EQ(diagnosis.StateOf("device"), "unknown");
  EXPECT_EQ(diagnosis.StateOf("midi-devices"), "holds");

  DeskOptions noValue;
  noValue.installDir = false;
  ExpectBroken(Examine(kNoWait, noValue), "support-folder", "InstallDir is not there");
}

TEST(HostDoctor, ADeviceLibraryThatTheRegistryDoesNotName) {
  DeskOptions options;
  options.deviceLibrary = false;
  const Diagnosis diagnosis = Examine(kNoWait, options);
  ExpectBroken(diagnosis, "device-folder", "iTunesMobileDeviceDLL is not there");
  EXPECT_EQ(diagnosis.StateOf("core-foundation"), "holds");
  EXPECT_EQ(diagnosis.StateOf("device-library"), "unknown");
}

TEST(HostDoctor, EachOfApplesLibrariesThatIsMissing) {
  DeskOptions noAsl;
  noAsl.asl = false;
  ExpectBroken(Examine(kNoWait, noAsl), "asl", "ASL cannot be loaded: ");
  DeskOptions noFoundation;
  noFoundation.coreFoundation = false;
  ExpectBroken(Examine(kNoWait, noFoundation), "core-foundation", "cannot be loaded: ");
  DeskOptions noDevices;
  noDevices.mobileDevice = false;
  ExpectBroken(Examine(kNoWait, noDevices), "device-library",
               "iTunesMobileDevice.dll cannot be loaded: ");
}

TEST(HostDoctor, ALibraryOfThatNameThatIsAnother) {
  const harness::TempFolder folder;
  const auto other = folder.Path() / "iTunesMobileDevice.dll";
  std::filesystem::copy_file(harness::WindowsBuildTree() / "desk/apple/ASL.dll", other);
  DeskOptions options;
  options.deviceLibraryText = harness::WindowsPath(other);
  const Diagnosis diagnosis = Examine(kNoWait, options);
  ExpectBroken(diagnosis, "device-library",
               "\\iTunesMobileDevice.dll has no export AMDeviceNotificationSubscribe");
}

TEST(HostDoctor, APortDriverThatIsMissingOrMakesNoPort) {
  DeskOptions missing;
  missing.virtualMidi = false;
  const Diagnosis diagnosis = Examine(kNoWait, missing);
  ExpectBroken(diagnosis, "port-library", "teVirtualMIDI64.dll cannot be loaded: ");
  EXPECT_EQ(diagnosis.StateOf("port-driver"), "unknown");
  ExpectBroken(Examine(kNoWait, {},
                       [](DeskControl& control) { control.Fail("virtualMIDICreatePortEx2", 5); }),
               "port-driver", "makes no port: ");
}

TEST(HostDoctor, ADesktopWithoutMidiDevices) {
  const Diagnosis diagnosis =
      DiagnosisOf(HostTool({"doctor", "--json", "--listen=0", kNoWait}).End());
  ExpectBroken(diagnosis, "midi-devices", "0 MIDI inputs, 0 MIDI outputs");
}

TEST(HostDoctor, ADeviceServiceThatRefuses) {
  const Diagnosis diagnosis = Examine(kPatientWait, {}, [](DeskControl& control) {
    control.Fail("AMDeviceNotificationSubscribe", 0x12);
  });
  ExpectBroken(diagnosis, "device-service", "refuses to tell of arrivals: 0x12");
}

TEST(HostDoctor, NoDeviceAttached) {
  const Diagnosis diagnosis = Examine(kPatientWait);
  ExpectBroken(diagnosis, "device", "no iOS device is attached");
  EXPECT_EQ(diagnosis.StateOf("device-service"), "holds");
  EXPECT_EQ(diagnosis.StateOf("connection"), "unknown");
  EXPECT_EQ(diagnosis.StateOf("endpoints"), "unknown");
}

TEST(HostDoctor, ADeviceThatRefusesTheConnection) {
  AttachedDevice device;
  const Diagnosis diagnosis = Examine(kPatientWait, {}, [&](DeskControl& control) {
    device.LayOut(control, {.connectAnswers = {0xE8000013}});
  });
  ExpectBroken(diagnosis, "connection", "the device refuses: 0xE8000013");
  EXPECT_EQ(diagnosis.FoundAt("device"), "1 device: ipad");
  EXPECT_EQ(diagnosis.StateOf("app"), "unknown");
}

TEST(HostDoctor, ADeviceWhoseAppIsNotOpen) {
  AttachedDevice device;
  const Diagnosis diagnosis = Examine(kPatientWait, {}, [&](DeskControl& control) {
    device.LayOut(control, {.streamAnswers = {0x1234}});
  });
  ExpectBroken(diagnosis, "app", "nothing answers at port 23451 of the device: 0x1234");
  EXPECT_EQ(diagnosis.StateOf("connection"), "holds");
  EXPECT_EQ(diagnosis.StateOf("endpoints"), "unknown");
}

TEST(HostDoctor, AnAppThatAnnouncesNothing) {
  AttachedDevice device;
  const Diagnosis diagnosis =
      Examine(kPatientWait, {}, [&](DeskControl& control) { device.LayOut(control); });
  ExpectBroken(diagnosis, "endpoints", "the app has announced none");
  EXPECT_EQ(diagnosis.StateOf("app"), "holds");
}

TEST(HostDoctor, NoNoteAndAnInputThatIsInUse) {
  DeskOptions bare;
  bare.supportKey = bare.deviceKey = false;
  HostTool tool({"doctor", "--listen=1", kNoWait}, bare, [](DeskControl& control) {
    control.AddInput("Keys");
    control.AddInput("Busy");
    control.Fail("midiInOpen", 4, {.firstArgument = 1});
  });
  const Ended ended = tool.End();
  EXPECT_EQ(ended.exitCode, 7);
  EXPECT_THAT(ended.out, HasSubstr("\nbroken   midi                nothing heard in 1 second; "
                                   "could not be opened: \"Busy\" (result 4)\n"));
}

}  // namespace
}  // namespace corvalint::windows_test
