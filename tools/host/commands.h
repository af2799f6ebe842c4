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
  bool version = false;
  // Of the doctor only: seconds for which it listens for MIDI, and at most waits for a device.
  std::optional<std::int32_t> listenSeconds;
  std::optional<std::int32_t> waitSeconds;
  std::string command;  // The words that are no options, joined by blanks; empty: read from stdin.
  std::string error;    // Not empty: the command line makes no sense, and why.
};

// Reads the arguments after the program's name. Options stand anywhere; what follows "--" are
// words, and so is a number with its minus sign. With an error `json` still tells how to answer.
Options ParseOptions(const std::vector<std::string>& arguments);

// A command line taken apart: its first word and what follows, both without outer blanks.
struct Command {
  std::string verb;
  std::string rest;
};

Command ParseCommand(std::string_view line);

// Why the command makes no sense, whatever endpoints there are: an unknown word, too many or too
// few of them, a number that is none. Empty if it makes sense, and for an empty command.
std::string CommandProblem(const Command& command);

// The words of a text, separated by blanks or tabs.
std::vector<std::string> SplitWords(std::string_view text);

// A whole decimal number with an optional minus sign and nothing around it; empty if the text is
// anything else or the number does not fit.
std::optional<std::int32_t> ParseInt32(std::string_view text);
std::optional<std::int64_t> ParseInt64(std::string_view text);

enum class SideFilter { kAny, kBoth, kSources, kDestinations };

// Which endpoints a person means: `12`, `USB Keyboard`, `"USB Keyboard"`, `source 12`,
// `destination USB Keyboard`, `both USB Keyboard`.
struct Target {
  SideFilter side = SideFilter::kAny;
  std::string text;  // An id or a name, without quotes.
};

Target ParseTarget(std::string_view rest);

}  // namespace corvalint::host
