#include "demo/osc_messages.h"

#include <cstdio>
#include <stdexcept>
#include <utility>
#include <variant>

namespace corvalint::demo {

namespace {

constexpr const char* kInstrument = "Grand Piano";

std::string TextOf(float number, const char* format) {
  char text[64];
  std::snprintf(text, sizeof(text), format, static_cast<double>(number));
  return text;
}

// The argument as text, with the program's way of writing floats and of setting off strings.
std::string TextOf(const device::OscArgument& argument, const char* floatFormat,
                   const char* quotes) {
  if (const auto* number = std::get_if<std::int32_t>(&argument)) return std::to_string(*number);
  if (const auto* number = std::get_if<float>(&argument)) return TextOf(*number, floatFormat);
  if (const auto* text = std::get_if<std::string>(&argument)) return quotes + *text + quotes;
  throw std::invalid_argument("an argument that the demo does not play");
}

std::string TypeTags(const device::OscMessage& message) {
  std::string tags;
  for (const device::OscArgument& argument : message.arguments) {
    tags += std::holds_alternative<std::int32_t>(argument) ? 'i'
            : std::holds_alternative<float>(argument)      ? 'f'
                                                           : 's';
  }
  return tags;
}

}  // namespace

device::OscMessage AsOsc(std::int32_t number, const harness::Bytes& midi) {
  const float loudness = midi.empty() ? 0.0f : static_cast<float>(midi.back()) / 127.0f;
  device::OscMessage message{"/play", {}, {number, std::string(kInstrument), loudness}};
  for (const std::uint8_t byte : midi) {
    message.arguments.emplace_back(std::in_place_type<std::int32_t>, byte);
  }
  message.typeTags = TypeTags(message);
  return message;
}

std::string DumpLine(const device::OscMessage& message) {
  std::string line = message.address + " " + TypeTags(message);
  for (const auto& argument : message.arguments) line += " " + TextOf(argument, "%f", "\"");
  return line;
}

std::string WithoutTime(const std::string& line) {
  const std::size_t blank = line.find(' ');
  return blank == std::string::npos ? std::string() : line.substr(blank + 1);
}

std::vector<std::string> OscSendArguments(const device::OscMessage& message) {
  std::vector<std::string> arguments = {message.address, TypeTags(message)};
  // Nine digits bring every float back to the bit.
  for (const auto& argument : message.arguments) {
    arguments.push_back(TextOf(argument, "%.9g", ""));
  }
  return arguments;
}

device::Song Paced(const device::Song& song, std::size_t count, std::int64_t interval) {
  device::Song paced{song.title, {}};
  if (song.events.empty()) return paced;
  for (std::size_t i = 0; i < count; ++i) {
    paced.events.push_back(
        {static_cast<std::int64_t>(i) * interval, song.events[i % song.events.size()].bytes});
  }
  return paced;
}

}  // namespace corvalint::demo
