#include "fuzz/support/host_text.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/support/check.h"
#include "host/commands.h"

namespace corvalint::fuzz {

namespace {

bool IsBlank(char byte) { return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n'; }

std::string_view WithoutOuterBlanks(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::vector<std::string> Words(std::string_view text) {
  std::vector<std::string> words(1);
  for (const char byte : text) {
    if (!IsBlank(byte)) {
      words.back() += byte;
    } else if (!words.back().empty()) {
      words.emplace_back();
    }
  }
  if (words.back().empty()) words.pop_back();
  return words;
}

std::vector<std::string> SplitAtZeroes(std::string_view text) {
  std::vector<std::string> parts(1);
  for (const char byte : text) {
    if (byte == '\0') {
      parts.emplace_back();
    } else {
      parts.back() += byte;
    }
  }
  return parts;
}

bool IsWord(const std::string& argument) {
  return argument.size() < 2 || argument[0] != '-' || host::ParseInt32(argument).has_value();
}

void CheckOptions(std::string_view text) {
  const std::vector<std::string> arguments = SplitAtZeroes(text);
  const host::Options options = host::ParseOptions(arguments);
  const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
  const auto given = [&](const char* name) {
    return std::find(arguments.begin(), dashes, name) != dashes;
  };
  std::string joined;
  std::string wrong;  // the first option that is none; those of the doctor may be
  bool maybeWrong = false;
  for (auto at = arguments.begin(); at != arguments.end(); ++at) {
    if (at == dashes) continue;
    if (at > dashes || IsWord(*at)) {
      joined += (joined.empty() ? "" : " ") + *at;
    } else if (at->starts_with("--listen") || at->starts_with("--wait")) {
      maybeWrong = true;
    } else if (wrong.empty() && *at != "--json" && *at != "--no-start" && *at != "--verbose" &&
               *at != "--help" && *at != "-h" && *at != "--version") {
      wrong = *at;
    }
  }
  CheckSame(options.command, joined, "command");
  Check(options.json == given("--json"), "--json");
  if (maybeWrong) return;
  if (!wrong.empty()) return CheckSame(options.error, "unknown option " + wrong, "error");
  Check(options.noStart == given("--no-start"), "--no-start");
  Check(options.verbose == given("--verbose"), "--verbose");
  Check(options.version == given("--version"), "--version");
  Check(options.help == (given("--help") || given("-h")), "--help");
  const bool apart = options.noStart && (!options.json || !joined.empty());
  Check(options.error.empty() == !apart, "error of options that do not go together");
}

template <class Number>
void CheckNumber(std::string_view text, std::optional<Number> found) {
  std::string_view digits = text;
  const bool negative = !digits.empty() && digits.front() == '-';
  if (negative) digits.remove_prefix(1);
  bool fits = !digits.empty();
  __extension__ __int128 value = 0;
  for (const char digit : digits) {
    fits = fits && digit >= '0' && digit <= '9';
    if (!fits) break;
    value = value * 10 + (negative ? '0' - digit : digit - '0');
    fits =
        value >= std::numeric_limits<Number>::min() && value <= std::numeric_limits<Number>::max();
  }
  Check(found.has_value() == fits, "a number that is none, or the reverse");
  if (fits) Check(*found == static_cast<Number>(value), "value of a number");
}

void CheckTarget(std::string_view text) {
  const host::Target target = host::ParseTarget(text);
  const std::vector<std::string> words = Words(text);
  std::string_view expected = WithoutOuterBlanks(text);
  host::SideFilter side = host::SideFilter::kAny;
  if (words.size() > 1 &&
      (words[0] == "source" || words[0] == "destination" || words[0] == "both")) {
    side = words[0] == "source" ? host::SideFilter::kSources
           : words[0] == "both" ? host::SideFilter::kBoth
                                : host::SideFilter::kDestinations;
    expected = WithoutOuterBlanks(expected.substr(words[0].size()));
  }
  if (expected.size() >= 2 && expected.front() == '"' && expected.back() == '"') {
    expected = expected.substr(1, expected.size() - 2);
  }
  Check(target.side == side, "side of a target");
  CheckSame(target.text, expected, "text of a target");
}

void CheckCommand(std::string_view text) {
  const std::vector<std::string> words = Words(text);
  const host::Command command = host::ParseCommand(text);
  CheckSame(command.verb, words.empty() ? "" : words[0], "verb");
  CheckSame(command.rest, WithoutOuterBlanks(WithoutOuterBlanks(text).substr(command.verb.size())),
            "rest of a command");
  Check(host::SplitWords(text) == words, "words");
}

}  // namespace

void CheckHostText(std::uint8_t kind, std::string_view text) {
  switch (kind % 4) {
    case 1:
      return CheckOptions(text);
    case 2:
      CheckNumber<std::int32_t>(text, host::ParseInt32(text));
      return CheckNumber<std::int64_t>(text, host::ParseInt64(text));
    default:
      CheckTarget(text);
      CheckCommand(text);
  }
}

}  // namespace corvalint::fuzz
