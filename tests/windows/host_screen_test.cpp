// The live screen of the console host's watch, in a narrow terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "harness/temp_folder.h"
#include "windows/support/host_tool.h"

namespace corvalint::windows_test {
namespace {

constexpr std::size_t kColumns = 20;

void CopyInto(const std::filesystem::path& folder, const std::vector<std::string>& files) {
  std::filesystem::create_directories(folder);
  for (const std::string& file : files) {
    const auto source = harness::WindowsBuildTree() / file;
    std::filesystem::copy_file(source, folder / source.filename());
  }
}

// The console host in a terminal, at a desk with everything that a device needs.
class TerminalHost {
 public:
  TerminalHost() {
    const auto host = temp.Path() / "host";
    const auto apple = temp.Path() / "apple";
    CopyInto(host, {"corvalint-host.exe", "corvalint_wrapper.dll", "desk/winmm.dll",
                    "desk/corvalint_desk.dll", "desk/teVirtualMIDI64.dll"});
    CopyInto(apple, {"desk/apple/ASL.dll", "desk/apple/CoreFoundation.dll",
                     "desk/apple/iTunesMobileDevice.dll"});
    const std::string keys = "Software\\Apple Inc.\\Apple ";
    harness::MakeWinePrefix(
        temp.Path() / "prefix",
        {{{keys + "Application Support", "InstallDir"}, harness::WindowsPath(apple) + "\\"},
         {{keys + "Mobile Device Support\\Shared", "iTunesMobileDeviceDLL"},
          harness::WindowsPath(apple / "iTunesMobileDevice.dll")}});
    harness::Process::Setup setup;
    const std::string line = "stty cols " + std::to_string(kColumns) + " rows 8; exec wine '" +
                             (host / "corvalint-host.exe").string() + "' watch";
    setup.command = {"script", "--quiet", "--flush", "--return", "--command", line, "/dev/null"};
    setup.environment = harness::WineEnvironment(temp.Path() / "prefix");
    setup.environment["TERM"] = "xterm";
    setup.environment["CORVALINT_DESK_CONTROL"] =
        "127.0.0.1:" + std::to_string(control.ControlPort());
    process = std::make_unique<harness::Process>(setup);
  }

  bool WaitFor(const std::string& text) {
    return process->WaitForOutput(
        [&text](const std::string& all) { return all.find(text) != std::string::npos; }, kPatience);
  }

  harness::DeskControl& Control() { return control; }
  harness::Process& GetProcess() { return *process; }

 private:
  harness::TempFolder temp;
  harness::DeskControl control;
  std::unique_ptr<harness::Process> process;
};

// The pieces of text between the terminal's control sequences and line ends.
std::vector<std::string> Pieces(const std::string& written) {
  std::vector<std::string> pieces(1);
  bool inSequence = false;
  for (const char letter : written) {
    if (inSequence) {
      inSequence =
          letter == '[' || letter == '?' || letter == ';' || (letter >= '0' && letter <= '9');
    } else if (static_cast<unsigned char>(letter) < 0x20) {
      inSequence = letter == '\x1B';
      pieces.emplace_back();
    } else {
      pieces.back() += letter;
    }
  }
  return pieces;
}

TEST(HostScreen, IsDrawnInPlaceAndEndsWithCtrlC) {
  TerminalHost host;
  ASSERT_TRUE(host.Control().WaitUntilConnected());
  host.Control().AddInput("A keyboard with a long name");
  host.Control().Open();
  ASSERT_TRUE(host.WaitFor(" off A keyboard wit~"));
  ASSERT_TRUE(host.WaitFor("Destinations: none"));
  host.Control().AddOutput("Synth");
  ASSERT_TRUE(host.WaitFor(" off Synth"));
  ASSERT_TRUE(host.GetProcess().Write("\x03"));
  EXPECT_EQ(host.GetProcess().WaitForExit(kPatience), 0);
  for (const std::string& piece : Pieces(host.GetProcess().Output())) {
    EXPECT_LE(piece.size(), kColumns) << piece;
  }
}

TEST(HostScreen, ShowsTheMessagesPerSecondOfAPort) {
  TerminalHost host;
  ASSERT_TRUE(host.Control().WaitUntilConnected());
  host.Control().Open();
  PluggedDevice ipad(host.Control(), "ipad");
  ipad.Attach();
  const harness::Port port = ipad.PublishSource("App", 7);
  ASSERT_TRUE(host.Control().WaitForInputStarted(port.inputId, kPatience));
  ASSERT_TRUE(host.WaitFor("MIDI per second"));
  ASSERT_TRUE(host.WaitFor("    0        App"));
  // All at once, so that they come in one second; should they not, then the next time.
  bool shown = false;
  for (int round = 0; round < 5 && !shown; ++round) {
    for (int note = 0; note < 241; ++note) {
      ASSERT_TRUE(ipad.App().SendMidi("App", 7, {0x90, 60, 1}));
    }
    shown = host.GetProcess().WaitForOutput(
        [](const std::string& all) {
          return std::ranges::any_of(Pieces(all), [](const std::string& piece) {
            return piece.find("241") != std::string::npos;
          });
        },
        std::chrono::seconds(4));
  }
  EXPECT_TRUE(shown);
  ASSERT_TRUE(host.GetProcess().Write("\x03"));
  EXPECT_EQ(host.GetProcess().WaitForExit(kPatience), 0);
}

}  // namespace
}  // namespace corvalint::windows_test
