#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/doctor.h"
#include "host/documents.h"
#include "host/exit_codes.h"
#include "host/help.h"
#include "host/json.h"
#include "host/person.h"
#include "host/script.h"
#include "host/windows_doctor.h"
#include "host/windows_ears.h"
#include "host/windows_library_lines.h"
#include "host/windows_screen.h"
#include "host/windows_system.h"
#include "host/windows_text.h"
#include "host/windows_wrapper.h"

namespace corvalint::host {
namespace {

// Nobody takes what this program writes.
struct OutputGone {};

void Write(std::FILE* file, const std::string& text) {
  if (std::fputs(text.c_str(), file) < 0 || std::fflush(file) != 0) throw OutputGone();
}

void WriteComplaint(const std::string& text) {
  std::fprintf(stderr, "corvalint-host: %s\n", text.c_str());
}

// Standard output belongs to the library in the script mode, so the answers go to standard error,
// each with one call, so that a line is never torn.
void WriteAnswer(const std::string& json) {
  const std::string line = json + "\n";
  const int size = static_cast<int>(line.size());
  if (_write(2, line.data(), static_cast<unsigned int>(size)) != size) throw OutputGone();
}

int RunScript(const Options& options) {
  _setmode(2, _O_BINARY);
  try {
    const Wrapper wrapper = LoadWrapper();
    const System system = MakeSystem();
    Script script(wrapper, system);
    if (!options.noStart) script.Start();
    WriteAnswer(script.ReadyLine());
    while (!script.Finished()) {
      const std::optional<std::string> line = ReadInputLine();
      if (!line) break;
      WriteAnswer(script.Answer(*line));
    }
    return kExitDone;
  } catch (const NoLibrary& failure) {
    WriteAnswer(JsonObject().String("error", failure.what()).Text());
    return kExitNoLibrary;
  }
}

int ReadCommands(Person& person, const Output& output) {
  const bool typed = InputIsConsole();
  if (typed) output.print("The bridge is running. `help` names the commands.\n");
  int code = kExitDone;
  while (!person.Finished()) {
    if (typed) output.print("> ");
    const std::optional<std::string> line = ReadInputLine();
    if (!line) break;
    const int lineCode = person.Do(*line);
    if (code == kExitDone) code = lineCode;
  }
  return typed ? kExitDone : code;
}

int RunPerson(const Options& options, std::FILE* file, const Output& output) {
  const Wrapper wrapper = LoadWrapper();
  System system = MakeSystem();
  system.columns = [file] { return TerminalColumns(file); };
  system.listInputs = ListInputs;
  system.openInput = OpenInputEar;
  // On a screen the library's own lines would stand in the way.
  if (!options.verbose) {
    system.openScreen = [file] { return OpenConsoleScreen(file); };
    system.takeLibraryLines = [] { return AnsiToUtf8(TakeKeptLines()); };
  }
  Utf8Console console;
  Person person(wrapper, system, output);
  person.Start();
  if (!options.command.empty()) return person.DoAndStay(options.command);
  return ReadCommands(person, output);
}

Output MakeOutput(std::FILE* file, bool json) {
  Output output;
  output.json = json;
  output.print = [file](const std::string& text) { Write(file, text); };
  output.complain = [file, json](int exitCode, const std::string& text) {
    if (json) {
      Write(file, ErrorDocument(exitCode, text) + "\n");
    } else {
      WriteComplaint(text);
    }
  };
  return output;
}

int RunDoctor(const Options& options, const Output& output) {
  constexpr int kUsualSeconds = 5;
  Utf8Console console;
  const Instruments instruments = MakeInstruments();
  Doctor doctor(instruments, [&](const Link& link) {
    output.print((output.json ? LinkDocument(link) : LinkText(link)) + "\n");
  });
  const std::optional<Link> broken = doctor.Examine(options.waitSeconds.value_or(kUsualSeconds),
                                                    options.listenSeconds.value_or(kUsualSeconds));
  const int code = broken ? kExitBroken : kExitDone;
  if (options.verbose) std::fputs(KeptLines().c_str(), stderr);
  output.print((output.json ? VerdictDocument(broken, code) : VerdictText(broken)) + "\n");
  return code;
}

int RunSubCommand(const Options& options) {
  const bool doctor = options.command == "doctor";
  const bool kept = doctor || (TerminalColumns(stdout) > 0 && !options.verbose);
  const LibraryLines lines = options.verbose ? LibraryLines::kToStderr : LibraryLines::kNowhere;
  std::FILE* const file = SeparateOutput(kept ? LibraryLines::kKept : lines, options.json);
  if (file == nullptr) throw OutputGone();
  const Output output = MakeOutput(file, options.json);
  try {
    return doctor ? RunDoctor(options, output) : RunPerson(options, file, output);
  } catch (const NoLibrary& failure) {
    output.complain(kExitNoLibrary, failure.what());
    return kExitNoLibrary;
  } catch (const std::exception& failure) {
    output.complain(kExitFailed, failure.what());
    return kExitFailed;
  }
}

int RunOptions(const Options& options) {
  std::string problem = options.error;
  const Command command = ParseCommand(options.command);
  if (problem.empty() && !options.help && !options.version) problem = CommandProblem(command);
  if (!problem.empty()) {
    MakeOutput(stdout, options.json).complain(kExitUsage, problem + "; --help says more");
    return kExitUsage;
  }
  if (options.help || command.verb == "help") {
    Write(stdout, HelpText());
    return kExitDone;
  }
  if (options.version) {
    Write(stdout, "corvalint-host " CORVALINT_VERSION "\n");
    return kExitDone;
  }
  return options.json && command.verb.empty() ? RunScript(options) : RunSubCommand(options);
}

int Run(const std::vector<std::string>& arguments) {
  try {
    return RunOptions(ParseOptions(arguments));
  } catch (const OutputGone&) {
    WriteComplaint("nobody takes the output");
    return kExitNoOutput;
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
