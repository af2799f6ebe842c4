#include "host/commands.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace corvalint::host {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

constexpr std::int32_t kMostSeconds = 3600;

bool IsOption(const std::string& argument) {
  return argument.size() > 1 && argument[0] == '-' && !ParseInt32(argument);
}

bool* FlagOf(Options& options, const std::string& argument) {
  if (argument == "--json") return &options.json;
  if (argument == "--no-start") return &options.noStart;
  if (argument == "--verbose") return &options.verbose;
  if (argument == "--version") return &options.version;
  if (argument == "--help" || argument == "-h") return &options.help;
  return nullptr;
}

void TakeOption(Options& options, const std::string& argument) {
  if (bool* flag = FlagOf(options, argument)) {
    *flag = true;
    return;
  }
  const std::size_t equals = std::min(argument.find('='), argument.size());
  const std::string name = argument.substr(0, equals);
  if (name != "--listen" && name != "--wait") {
    options.error = "unknown option " + argument;
    return;
  }
  const std::optional<std::int32_t> seconds =
      ParseInt32(std::string_view(argument).substr(std::min(equals + 1, argument.size())));
  if (!seconds || *seconds < 0 || *seconds > kMostSeconds) {
    options.error = name + " takes seconds, 0 to 3600, as in " + name + "=5";
    return;
  }
  (name == "--listen" ? options.listenSeconds : options.waitSeconds) = *seconds;
}

// Options that do not go together.
std::string Contradiction(const Options& options) {
  if ((options.listenSeconds || options.waitSeconds) && options.command != "doctor") {
    return "--listen and --wait go with doctor only";
  }
  if (!options.noStart) return {};
  if (!options.json) return "--no-start goes with --json only";
  if (!options.command.empty()) return "--no-start goes with no sub-command";
  return {};
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  bool onlyWords = false;
  for (const std::string& argument : arguments) {
    if (!onlyWords && argument == "--") {
      onlyWords = true;
    } else if (!onlyWords && IsOption(argument)) {
      if (options.error.empty() || argument == "--json") TakeOption(options, argument);
    } else {
      if (!options.command.empty()) options.command += ' ';
      options.command += argument;
    }
  }
  if (options.error.empty()) options.error = Contradiction(options);
  return options;
}

Command ParseCommand(std::string_view line) {
  const std::string_view trimmed = Trim(line);
  const std::size_t end = std::min(trimmed.find_first_of(kBlanks), trimmed.size());
  return {std::string(trimmed.substr(0, end)), std::string(Trim(trimmed.substr(end)))};
}

std::string CommandProblem(const Command& command) {
  const std::string& verb = command.verb;
  if (verb.empty()) return {};
  if (verb == "on" || verb == "off" || verb == "toggle") {
    return command.rest.empty() ? verb + " needs an id or a name; list shows them" : std::string();
  }
  if (verb == "watch") {
    if (command.rest.empty()) return {};
    const std::optional<std::int32_t> seconds = ParseInt32(command.rest);
    return seconds && *seconds >= 0 ? std::string() : "watch takes a number of seconds";
  }
  const bool known =
      verb == "list" || verb == "clients" || verb == "doctor" || verb == "help" || verb == "quit";
  if (!known) return "unknown command " + verb;
  return command.rest.empty() ? std::string() : verb + " takes nothing after it";
}

std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> words;
  Command command = ParseCommand(text);
  while (!command.verb.empty()) {
    words.push_back(command.verb);
    command = ParseCommand(command.rest);
  }
  return words;
}

std::optional<std::int32_t> ParseInt32(std::string_view text) {
  return ParseNumber<std::int32_t>(text);
}

std::optional<std::int64_t> ParseInt64(std::string_view text) {
  return ParseNumber<std::int64_t>(text);
}

Target ParseTarget(std::string_view rest) {
  Target target;
  const Command command = ParseCommand(rest);
  target.text = std::string(Trim(rest));
  SideFilter side = SideFilter::kAny;
  if (command.verb == "source") side = SideFilter::kSources;
  if (command.verb == "destination") side = SideFilter::kDestinations;
  if (command.verb == "both") side = SideFilter::kBoth;
  if (!command.rest.empty() && side != SideFilter::kAny) {
    target.side = side;
    target.text = command.rest;
  }
  std::string& text = target.text;
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return target;
}

}  // namespace corvalint::host
