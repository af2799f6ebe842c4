// The zip archive that people get: made twice, unpacked in a folder of its own, and used from
// there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "examples/wait_for_end.h"
#include "harness/desk.h"
#include "harness/temp_folder.h"

namespace corvalint {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr std::chrono::milliseconds kPatience{60000};
constexpr std::chrono::milliseconds kDemoPatience{240000};

std::string BytesOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream.good()) << file;
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return bytes.str();
}

std::string Version() {
  std::string text = BytesOf(fs::path(CORVALINT_SOURCE_DIR) / "VERSION");
  std::erase(text, '\n');
  return text;
}

// Runs a program to its end, which must be a good one; what it wrote to standard output.
std::string RunToEnd(const std::vector<std::string>& command, const fs::path& directory,
                     const std::map<std::string, std::string>& environment = {},
                     std::chrono::milliseconds limit = kPatience) {
  harness::Process::Setup setup;
  setup.command = command;
  setup.directory = directory;
  setup.environment = environment;
  harness::Process process(setup);
  EXPECT_EQ(WaitForEnd(process, limit), 0) << command[0] << ": " << process.Errors();
  return process.Output();
}

class Package : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder = std::make_unique<harness::TempFolder>();
    zip = Pack("one");
    RunToEnd({"python3", "-m", "zipfile", "-e", zip.string(), "."}, folder->Path());
  }
  static void TearDownTestSuite() { folder.reset(); }

  // Makes the archive in a folder of that name.
  static fs::path Pack(const std::string& name) {
    const fs::path out = folder->Path() / name;
    std::string path =
        RunToEnd({"python3", std::string(CORVALINT_SOURCE_DIR) + "/packaging/make_package.py",
                  harness::WindowsBuildTree().string(), out.string()},
                 folder->Path());
    std::erase(path, '\n');
    return path;
  }

  static fs::path Unpacked() { return folder->Path() / zip.stem(); }

  // A desk with a program of the unpacked folder as its host, and the library from there.
  static harness::DeskOptions With(const std::string& program,
                                   const std::vector<std::string>& arguments) {
    harness::DeskOptions options;
    options.program = Unpacked() / program;
    options.files = {Unpacked() / "corvalint_wrapper.dll"};
    options.arguments = arguments;
    return options;
  }

  // Builds an example with the first such command of examples/README.md.
  static void Build(const std::string& compiler, const std::string& language) {
    std::istringstream page(BytesOf(Unpacked() / "examples/README.md"));
    std::string command;
    for (std::string line; command.empty() && std::getline(page, line);) {
      if (line.starts_with("    " + compiler + " ")) command = line;
    }
    ASSERT_NE(command, "") << "no command for " << compiler;
    // MinGW-w64's compilers have longer names here.
    command.replace(0, 4 + compiler.size(), "x86_64-w64-mingw32-" + compiler + "-posix");
    RunToEnd({"sh", "-c", command}, Unpacked() / "examples" / language);
  }

  inline static std::unique_ptr<harness::TempFolder> folder;
  inline static fs::path zip;
};

TEST_F(Package, IsTheSameByteForByteWhenMadeTwice) {
  EXPECT_EQ(zip.filename(), "corvalint-" + Version() + "-win64.zip");
  const fs::path again = Pack("two");
  EXPECT_EQ(again.filename(), zip.filename());
  EXPECT_TRUE(BytesOf(again) == BytesOf(zip));
}

TEST_F(Package, KnowsNothingOfTheMachineThatMadeIt) {
  for (const auto& entry : fs::recursive_directory_iterator(Unpacked())) {
    if (!entry.is_regular_file()) continue;
    EXPECT_EQ(BytesOf(entry.path()).find(CORVALINT_SOURCE_DIR), std::string::npos) << entry.path();
  }
}

TEST_F(Package, HoldsTheSumOfEachFile) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(Unpacked())) {
    if (entry.is_regular_file()) files.insert(fs::relative(entry.path(), Unpacked()).string());
  }
  std::istringstream sums(BytesOf(Unpacked() / "SHA256SUMS"));
  std::set<std::string> named{"SHA256SUMS"};
  for (std::string sum, name; sums >> sum >> name;) named.insert(name);
  EXPECT_EQ(named, files);
  RunToEnd({"sha256sum", "--check", "--strict", "--quiet", "SHA256SUMS"}, Unpacked());
  for (const char* file : {"corvalint_wrapper.dll", "corvalint_wrapper.lib", "corvalint-host.exe",
                           "libcorvalint_wrapper.dll.a", "corvalint_wrapper.h", "LICENSE",
                           "licenses/oscpack.txt", "docs/host-guide.md"}) {
    EXPECT_TRUE(files.contains(file)) << file;
  }
}

// The numbers that Windows shows in a file's properties stand behind this mark.
TEST_F(Package, ShowsItsVersionInThePropertiesOfBothPrograms) {
  for (const char* file : {"corvalint_wrapper.dll", "corvalint-host.exe"}) {
    const std::string bytes = BytesOf(Unpacked() / file);
    const std::size_t mark = bytes.find("\xBD\x04\xEF\xFE");
    ASSERT_NE(mark, std::string::npos) << file;
    const auto number = [&](std::size_t at) {
      const auto byte = [&](std::size_t place) {
        return static_cast<unsigned>(static_cast<unsigned char>(bytes.at(place)));
      };
      return std::to_string(byte(mark + at) + 256 * byte(mark + at + 1));
    };
    EXPECT_EQ(number(10) + "." + number(8) + "." + number(14), Version()) << file;
  }
}

TEST_F(Package, TellsItsVersionOnTheCommandLine) {
  harness::DeskOptions options = With("corvalint-host.exe", {"--version"});
  options.winmm = false;
  options.supportKey = false;
  harness::Desk desk(options);
  harness::Process& host = desk.GetHost().GetProcess();
  EXPECT_EQ(WaitForEnd(host, kPatience), 0);
  EXPECT_THAT(host.Output(), testing::MatchesRegex("corvalint-host " + Version() + "\r?\n"));
}

// As a person would, on a machine without any of Apple's software and without MIDI devices.
TEST_F(Package, RunsTheCommandsOfItsFirstPage) {
  struct Outcome {
    std::vector<std::string> arguments;
    int code;
    std::string told;
  };
  const std::map<std::string, Outcome> outcomes{
      {"--help", {{"--help"}, 0, "SUB-COMMANDS"}},
      {"list", {{"list"}, 0, "Destinations: none"}},
      {"doctor", {{"doctor"}, 7, "The first broken link is support-folder"}},
      {"on \"USB Keyboard\"", {{"on", "USB Keyboard"}, 4, "USB Keyboard"}}};
  std::istringstream page(BytesOf(Unpacked() / "README.md"));
  const std::string prefix = "    corvalint-host ";
  std::set<std::string> commands;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with(prefix)) commands.insert(line.substr(prefix.size()));
  }
  EXPECT_EQ(commands.size(), outcomes.size());
  for (const std::string& command : commands) {
    ASSERT_TRUE(outcomes.contains(command)) << command;
    const auto& [arguments, code, told] = outcomes.at(command);
    harness::DeskOptions options = With("corvalint-host.exe", arguments);
    options.winmm = false;
    options.supportKey = false;
    harness::Desk desk(options);
    harness::Process& host = desk.GetHost().GetProcess();
    EXPECT_EQ(WaitForEnd(host, kPatience), code) << command << ": " << host.Errors();
    EXPECT_THAT(host.Output() + host.Errors(), HasSubstr(told)) << command;
  }
}

TEST_F(Package, RunsTheHostFromWhereItWasUnpacked) {
  harness::Desk desk(With("corvalint-host.exe", {"--json"}));
  const int keys = desk.Control().AddInput("Keys");
  desk.Control().Open();
  const auto source = desk.GetHost().WaitForSource("Keys", kPatience);
  ASSERT_TRUE(source.has_value());
  desk.GetHost().ToggleSource(source->id);
  EXPECT_TRUE(desk.Control().WaitForInputStarted(keys));
}

// The archive has no simulated desk; the demo looks for one beside the product.
TEST_F(Package, PlaysTheDemo) {
  const fs::path link = Unpacked() / "desk";
  fs::create_directory_symlink(harness::WindowsBuildTree() / "desk", link);
  const std::string told =
      RunToEnd({CORVALINT_DEMO, "--bars", "0"}, Unpacked(),
               {{"CORVALINT_WINDOWS_DIR", Unpacked().string()}}, kDemoPatience);
  fs::remove(link);
  EXPECT_THAT(told, HasSubstr(" messages arrived, unchanged and in order."));
}

TEST_F(Package, BuildsTheExampleInCForItsImportLibrary) {
  Build("gcc", "c");
  harness::Desk desk(With("poll.exe", {"600", "Keys"}));
  const int keys = desk.Control().AddInput("Keys");
  desk.Control().Open();
  EXPECT_TRUE(desk.Control().WaitForInputStarted(keys, kPatience));
}

TEST_F(Package, BuildsTheExampleInCppForItsImportLibrary) {
  Build("g++", "cpp");
  harness::Desk desk(With("switch_on.exe", {"600", "Keys"}));
  const int keys = desk.Control().AddInput("Keys");
  desk.Control().Open();
  EXPECT_TRUE(desk.Control().WaitForInputStarted(keys, kPatience));
}

// lld takes the place of Microsoft's linker, whose command line and libraries it has.
TEST_F(Package, LinksWithTheImportLibraryForMicrosoftsLinker) {
  std::ofstream(Unpacked() / "fixed.c")
      << "#include \"corvalint_wrapper.h\"\n"
         "int start(void) {\n"
         "  return corvalintServerWiFiClients() + corvalintServerScriptActive();\n"
         "}\n";
  RunToEnd({"clang", "--target=x86_64-pc-windows-msvc", "-c", "fixed.c", "-o", "fixed.obj"},
           Unpacked());
  RunToEnd({"lld-link", "/entry:start", "/subsystem:console", "/nodefaultlib", "/out:fixed.exe",
            "fixed.obj", "corvalint_wrapper.lib"},
           Unpacked());
  harness::DeskOptions options = With("fixed.exe", {});
  options.winmm = false;
  options.supportKey = false;
  harness::Desk desk(options);
  EXPECT_EQ(WaitForEnd(desk.GetHost().GetProcess(), kPatience), 15);
}

}  // namespace
}  // namespace corvalint
