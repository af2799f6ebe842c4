#include "host/commands.h"

#include <algorithm>
#include <charconv>

namespace corvalint::host {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trim(std::string_view text) {
  size_t first = text.find_first_not_of(kBlanks);
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

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  size_t index = 0;
  for (; index < arguments.size() && arguments[index].starts_with("-"); ++index) {
    const std::string& argument = arguments[index];
    if (argument == "--json") {
      options.json = true;
    } else if (argument == "--no-start") {
      options.noStart = true;
    } else if (argument == "--verbose") {
      options.verbose = true;
    } else if (argument == "--help" || argument == "-h") {
      options.help = true;
    } else {
      options.error = "unknown option " + argument;
      return options;
    }
  }
  for (; index < arguments.size(); ++index) {
    if (!options.command.empty()) options.command += ' ';
    options.command += arguments[index];
  }
  if (options.json && !options.command.empty()) {
    options.error = "--json reads its commands from standard input";
  } else if (options.noStart && !options.json) {
    options.error = "--no-start goes with --json only";
  }
  return options;
}

Command ParseCommand(std::string_view line) {
  std::string_view trimmed = Trim(line);
  size_t end = std::min(trimmed.find_first_of(kBlanks), trimmed.size());
  return {std::string(trimmed.substr(0, end)), std::string(Trim(trimmed.substr(end)))};
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

std::optional<int32_t> ParseInt32(std::string_view text) { return ParseNumber<int32_t>(text); }

std::optional<int64_t> ParseInt64(std::string_view text) { return ParseNumber<int64_t>(text); }

Target ParseTarget(std::string_view rest) {
  Target target;
  Command command = ParseCommand(rest);
  target.text = std::string(Trim(rest));
  if (!command.rest.empty() && (command.verb == "source" || command.verb == "destination")) {
    target.side = command.verb == "source" ? SideFilter::kSources : SideFilter::kDestinations;
    target.text = command.rest;
  }
  std::string& text = target.text;
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return target;
}

}  // namespace corvalint::host
