// The examples in C# and Python, run with the native library: as it is, when it finds no MIDI
// devices, and at a small desk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "examples/wait_for_end.h"
#include "harness/process.h"
#include "harness/temp_folder.h"

namespace corvalint {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr std::chrono::milliseconds kPatience{60000};

struct Language {
  const char* name;
  const char* interpreter;
  std::vector<std::string> program;
  bool takesLibrary;  // as its first argument; others look for it by name
};

std::ostream& operator<<(std::ostream& out, const Language& language) {
  return out << language.name;
}

struct Ended {
  std::optional<int> code;
  std::string output;
  std::string errors;
  std::string log;
};

// The library writes its log beside the program, which is the interpreter here, so each run has an
// interpreter of its own in a folder of its own.
class NativeExamples : public testing::TestWithParam<Language> {
 protected:
  Ended Run(const std::string& libraryFolder, const std::vector<std::string>& names) {
    harness::TempFolder folder;
    const fs::path interpreter = folder.Path() / GetParam().name;
    fs::copy_file(fs::canonical(GetParam().interpreter), interpreter);
    harness::Process::Setup setup;
    setup.command = {interpreter.string()};
    const auto append = [&](const std::vector<std::string>& words) {
      setup.command.insert(setup.command.end(), words.begin(), words.end());
    };
    append(GetParam().program);
    if (GetParam().takesLibrary) append({libraryFolder + "/libcorvalint_wrapper.so"});
    append(names);
    setup.directory = folder.Path();
    setup.environment = {{"LD_LIBRARY_PATH", libraryFolder},
                         {"PYTHONDONTWRITEBYTECODE", "1"},
                         {"LC_ALL", "C.UTF-8"}};
    harness::Process process(setup);
    Ended ended;
    ended.code = WaitForEnd(process, kPatience);
    ended.output = process.Output();
    ended.errors = process.Errors();
    std::ifstream file(folder.Path() / "pellora.log", std::ios::binary);
    std::ostringstream log;
    log << file.rdbuf();
    ended.log = log.str();
    return ended;
  }
};

TEST_P(NativeExamples, StartTheServiceAndFindNothing) {
  const Ended ended = Run(CORVALINT_NATIVE_LIBRARY, {});
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(ended.errors, "iOS devices: 0\n");
  EXPECT_THAT(ended.log, HasSubstr("LoadUsbLibraries"));
}

// What is shown of the desk, whose first scan takes its time.
constexpr const char* kWholeLists =
    "source -?[0-9]+: Kl\xC3\xA4vier, off, available\n"
    "source -?[0-9]+: Keys, off, available\n"
    "source -?[0-9]+: Twin, off, available\n"
    "destination -?[0-9]+: Synth, off, available\n"
    "destination -?[0-9]+: Twin, off, available\n"
    "iOS devices: 0\n";

TEST_P(NativeExamples, ShowTheWholeListsWithoutAName) {
  const Ended ended = Run(CORVALINT_DESK_LIBRARY, {});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.errors, testing::MatchesRegex(kWholeLists));
}

TEST_P(NativeExamples, SwitchBothEndpointsOfAName) {
  const Ended ended = Run(CORVALINT_DESK_LIBRARY, {"Twin"});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.errors,
              testing::StartsWith("on: Twin\noff: Twin\non: Twin\noff: Twin\nsource "));
  EXPECT_THAT(ended.output, HasSubstr("source added Twin\n"));
  EXPECT_THAT(ended.output, HasSubstr("destination added Twin\n"));
}

TEST_P(NativeExamples, SwitchByNameAndShowTheLists) {
  const Ended ended = Run(CORVALINT_DESK_LIBRARY, {"Kl\xC3\xA4vier", "Synth"});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.errors,
              testing::MatchesRegex(
                  std::string("on: Kl\xC3\xA4vier\noff: Kl\xC3\xA4vier\non: Synth\noff: Synth\n") +
                  kWholeLists));
  // What the library prints shows that it was switched; the scan may print in between.
  EXPECT_THAT(ended.output, HasSubstr("source added Kl\xC3\xA4vier\ntrue"));
  EXPECT_THAT(ended.output, HasSubstr("destination added Synth\ntrue"));
  EXPECT_THAT(ended.output, Not(HasSubstr("added Keys")));
}

TEST_P(NativeExamples, TellThatANameIsNotThere) {
  const Ended ended = Run(CORVALINT_DESK_LIBRARY, {"Theremin", "Keys"});
  EXPECT_EQ(ended.code, 1);
  EXPECT_THAT(ended.errors, testing::StartsWith("there is no MIDI device Theremin\n"
                                                "on: Keys\noff: Keys\n"));
}

std::string BytesOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream.good()) << file;
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return bytes.str();
}

// The names behind EXPORTS in the module definition, which decides for the DLL too.
std::set<std::string> ExportedNames() {
  std::istringstream words(
      BytesOf(fs::path(CORVALINT_SOURCE_DIR) / "src/api/corvalint_wrapper.def"));
  std::set<std::string> names;
  bool exports = false;
  for (std::string word; words >> word;) {
    if (exports) names.insert(word);
    exports = exports || word == "EXPORTS";
  }
  return names;
}

TEST(NativeLibrary, ExportsTheNamesOfTheDllAndNoOthers) {
  harness::Process::Setup setup;
  setup.command = {"nm", "--dynamic", "--defined-only", "--format=just-symbols",
                   CORVALINT_NATIVE_LIBRARY "/libcorvalint_wrapper.so"};
  harness::Process nm(setup);
  EXPECT_EQ(WaitForEnd(nm, kPatience), 0) << nm.Errors();
  std::istringstream words(nm.Output());
  std::set<std::string> names;
  for (std::string word; words >> word;) names.insert(word);
  EXPECT_EQ(names.size(), 20u);
  EXPECT_EQ(names, ExportedNames());
}

TEST(Bindings, DeclareEveryFunction) {
  const fs::path examples = fs::path(CORVALINT_SOURCE_DIR) / "examples";
  const std::string csharp = BytesOf(examples / "csharp/Corvalint.cs");
  const std::string python = BytesOf(examples / "python/corvalint.py");
  for (const std::string& name : ExportedNames()) {
    EXPECT_THAT(csharp, HasSubstr(" " + name + "("));
    EXPECT_THAT(python, HasSubstr("\"" + name + "\": ("));
  }
}

INSTANTIATE_TEST_SUITE_P(
    , NativeExamples,
    testing::Values(Language{"python", "/usr/bin/python3", {CORVALINT_PYTHON_EXAMPLE}, true},
                    Language{"csharp", "/usr/bin/mono-sgen", {CORVALINT_CSHARP_EXAMPLE}, false}),
    [](const auto& chosen) { return chosen.param.name; });

}  // namespace
}  // namespace corvalint
