#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/json.h"
#include "host/person.h"
#include "host/script.h"
#include "host/windows_system.h"

namespace corvalint::host {
namespace {

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// Standard output belongs to the library in this mode, so the answers go to standard error, each
// with one call, so that a line is never torn.
void WriteAnswer(const std::string& json) {
  std::string line = json + "\n";
  _write(2, line.data(), static_cast<unsigned int>(line.size()));
}

int RunScript(const Wrapper& wrapper, const System& system, const Options& options) {
  Script script(wrapper, system);
  if (!options.noStart) script.Start();
  WriteAnswer(script.ReadyLine());
  while (!script.Finished()) {
    std::optional<std::string> line = ReadInputLine();
    if (!line) break;
    WriteAnswer(script.Answer(*line));
  }
  return kExitDone;
}

int RunPerson(const Wrapper& wrapper, const System& system, const Options& options) {
  std::FILE* output = SeparateOutput(options.verbose);
  if (output == nullptr) {
    std::fputs("corvalint-host: standard output cannot be used\n", stderr);
    return kExitFailed;
  }
  auto print = [output](const std::string& text) {
    std::fputs(text.c_str(), output);
    std::fflush(output);
  };
  Utf8Console console;
  Person person(wrapper, system, print);
  person.Start();
  if (!options.command.empty()) return person.DoAndStay(options.command) ? kExitDone : kExitFailed;
  bool typed = InputIsConsole();
  if (typed) print("The bridge is running. `help` names the commands.\n");
  bool allDone = true;
  while (!person.Finished()) {
    if (typed) print("> ");
    std::optional<std::string> line = ReadInputLine();
    if (!line) break;
    allDone = person.Do(*line) && allDone;
  }
  return typed || allDone ? kExitDone : kExitFailed;
}

int Run(const std::vector<std::string>& arguments) {
  Options options = ParseOptions(arguments);
  if (!options.error.empty()) {
    std::fprintf(stderr, "corvalint-host: %s; --help says more\n", options.error.c_str());
    return kExitUsage;
  }
  if (options.help) {
    std::fputs(HelpText().c_str(), stdout);
    return kExitDone;
  }
  if (options.json) _setmode(2, _O_BINARY);
  try {
    System system = MakeSystem();
    Wrapper wrapper = LoadWrapper();
    return options.json ? RunScript(wrapper, system, options) : RunPerson(wrapper, system, options);
  } catch (const std::exception& failure) {
    if (options.json) {
      WriteAnswer(JsonObject().String("error", failure.what()).Text());
    } else {
      std::fprintf(stderr, "corvalint-host: %s\n", failure.what());
    }
    return kExitFailed;
  }
}

}  // namespace
}  // namespace corvalint::host

int wmain(int count, wchar_t** words) {
  std::vector<std::string> arguments;
  for (int index = 1; index < count; ++index) {
    arguments.push_back(corvalint::host::WideToUtf8(words[index]));
  }
  return corvalint::host::Run(arguments);
}
