#include "commands.h"

#include <exception>
#include <stdexcept>

#include "text.h"

namespace corvalint::desk {

Arguments::Arguments(std::string_view line) {
  for (const std::string_view part : Split(line, ' ')) {
    if (part.empty()) continue;
    const std::size_t equals = part.find('=');
    if (equals == std::string_view::npos) {
      words.push_back(part);
    } else {
      options[part.substr(0, equals)] = part.substr(equals + 1);
    }
  }
}

std::string_view Arguments::Word(std::size_t position) const {
  if (position >= words.size()) throw std::runtime_error("too few words");
  return words[position];
}

std::int64_t Arguments::Number(std::size_t position) const { return NumberFrom(Word(position)); }

bool Arguments::Has(std::string_view option) const { return options.contains(option); }

std::string_view Arguments::Option(std::string_view option, std::string_view fallback) const {
  const auto found = options.find(option);
  return found == options.end() ? fallback : found->second;
}

std::int64_t Arguments::OptionNumber(std::string_view option, std::int64_t fallback) const {
  return Has(option) ? NumberFrom(Option(option, "")) : fallback;
}

std::string RunCommandLine(std::string_view line) {
  static const CommandTable* const table = [] {
    auto* commands = new CommandTable;
    AddMidiCommands(*commands);
    AddDeviceCommands(*commands);
    AddCallCommands(*commands);
    return commands;
  }();
  const std::size_t space = line.find(' ');
  const std::string sequence(line.substr(0, space));
  try {
    const Arguments arguments(space == std::string_view::npos ? "" : line.substr(space + 1));
    const auto found = table->find(arguments.Word(0));
    if (found == table->end()) throw std::runtime_error("unknown command");
    const std::string answer = found->second(arguments);
    return sequence + (answer.empty() ? " ok" : " ok " + answer);
  } catch (const std::exception& error) {
    return sequence + " error " + error.what();
  }
}

}  // namespace corvalint::desk
