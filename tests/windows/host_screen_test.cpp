// The live screen of the console host's watch, in a terminal of twenty columns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "windows/support/host_tool.h"

namespace corvalint::windows_test {
namespace {

constexpr std::size_t kColumns = 20;

// The console host in a terminal, at a desk.
class TerminalHost {
 public:
  TerminalHost() {
    const auto host = temp.Path() / "host";
    std::filesystem::create_directories(host);
    for (const char* file : {"corvalint-host.exe", "corvalint_wrapper.dll", "desk/winmm.dll",
                             "desk/corvalint_desk.dll"}) {
      const auto source = harness::WindowsBuildTree() / file;
      std::filesystem::copy_file(source, host / source.filename());
    }
    harness::MakeWinePrefix(temp.Path() / "prefix", {});
    harness::Process::Setup setup;
    const std::string line = "stty cols " + std::to_string(kColumns) + " rows 8; exec wine '" +
                             (host / "corvalint-host.exe").string() + "' watch";
    setup.command = {"script", "--quiet", "--flush", "--return", "--command", line, "/dev/null"};
    setup.environment = harness::WineEnvironment(temp.Path() / "prefix");
    setup.environment["TERM"] = "xterm";
    setup.environment["CORVALINT_DESK_CONTROL"] = "127.0.0.1:" + std::to_string(control.Port());
    process = std::make_unique<harness::Process>(setup);
  }

  bool WaitFor(const std::string& text) {
    return process->WaitForOutput(
        [&text](const std::string& all) { return all.find(text) != std::string::npos; });
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

}  // namespace
}  // namespace corvalint::windows_test
