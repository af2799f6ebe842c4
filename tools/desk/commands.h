#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint::desk {

// One command line of the test, taken apart: words, and options of the form key=value.
class Arguments {
 public:
  explicit Arguments(std::string_view line);

  // Word by position (0 is the command). Both throw std::runtime_error if it is missing.
  std::string_view Word(std::size_t position) const;
  std::int64_t Number(std::size_t position) const;

  bool Has(std::string_view option) const;
  std::string_view Option(std::string_view option, std::string_view fallback) const;
  std::int64_t OptionNumber(std::string_view option, std::int64_t fallback) const;

 private:
  std::vector<std::string_view> words;
  std::map<std::string_view, std::string_view> options;
};

// A command answers with the text behind "ok"; an exception's text goes behind "error".
using Command = std::function<std::string(const Arguments&)>;
using CommandTable = std::map<std::string, Command, std::less<>>;

void AddMidiCommands(CommandTable& table);
void AddDeviceCommands(CommandTable& table);
void AddCallCommands(CommandTable& table);

// Runs "SEQUENCE COMMAND ..." and gives the reply line.
std::string RunCommandLine(std::string_view line);

}  // namespace corvalint::desk
