#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint::host {

// What the command line asks for. All texts are UTF-8.
struct Options {
  bool json = false;
  bool noStart = false;
  bool verbose = false;
  bool help = false;
  std::string command;  // The words after the options, joined by blanks; empty: read from stdin.
  std::string error;    // Not empty: the command line makes no sense, and why.
};

// Reads the arguments after the program's name. Options stand before the command.
Options ParseOptions(const std::vector<std::string>& arguments);

// A command line taken apart: its first word and what follows, both without outer blanks.
struct Command {
  std::string verb;
  std::string rest;
};

Command ParseCommand(std::string_view line);

// The words of a text, separated by blanks or tabs.
std::vector<std::string> SplitWords(std::string_view text);

// A whole decimal number with an optional minus sign and nothing around it; empty if the text is
// anything else or the number does not fit.
std::optional<int32_t> ParseInt32(std::string_view text);
std::optional<int64_t> ParseInt64(std::string_view text);

enum class SideFilter { kBoth, kSources, kDestinations };

// Which endpoints a person means: `12`, `USB Keyboard`, `"USB Keyboard"`, `source 12`,
// `destination USB Keyboard`.
struct Target {
  SideFilter side = SideFilter::kBoth;
  std::string text;  // An id or a name, without quotes.
};

Target ParseTarget(std::string_view rest);

}  // namespace corvalint::host
