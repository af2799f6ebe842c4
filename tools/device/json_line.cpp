#include "device/json_line.h"

#include <cmath>
#include <cstdio>
#include <string_view>
#include <type_traits>

namespace corvalint::device {
namespace {

std::string Printed(const char* format, unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// The length of the well-formed UTF-8 sequence that starts the text, or 0.
std::size_t Utf8Length(std::string_view text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const std::size_t length = first < 0x80                    ? 1
                             : first >= 0xC2 && first < 0xE0 ? 2
                             : first >= 0xE0 && first < 0xF0 ? 3
                             : first >= 0xF0 && first < 0xF5 ? 4
                                                             : 0;
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool tooLong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
  const bool noCharacter = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
  return tooLong || noCharacter ? 0 : length;
}

std::string Quoted(std::string_view text) {
  std::string quoted(1, '"');
  while (!text.empty()) {
    const auto first = static_cast<unsigned char>(text[0]);
    std::size_t length = Utf8Length(text);
    if (length == 0 || first < 0x20) {
      quoted += Printed("\\u%04x", first);
      length = 1;
    } else {
      if (first == '"' || first == '\\') quoted += '\\';
      quoted += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return quoted += '"';
}

std::string ArgumentJson(const OscArgument& argument) {
  return std::visit(
      [](const auto& value) -> std::string {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return Quoted(value);
        } else if constexpr (std::is_same_v<T, Bytes>) {
          std::string hex(1, '"');
          for (const std::uint8_t byte : value) hex += Printed("%02x", byte);
          return hex += '"';
        } else if constexpr (std::is_same_v<T, bool>) {
          return value ? "true" : "false";
        } else if constexpr (std::is_floating_point_v<T>) {
          if (!std::isfinite(value)) return "null";
          char text[40];
          std::snprintf(text, sizeof text, "%.17g", static_cast<double>(value));
          return text;
        } else {
          return std::to_string(value);
        }
      },
      argument);
}

}  // namespace

std::string ToJsonLine(const ReceivedMessage& received) {
  std::string line = "{\"stream\":" + std::to_string(received.stream) +
                     ",\"arrival\":" + std::to_string(received.arrival) +
                     ",\"address\":" + Quoted(received.message.address) +
                     ",\"tags\":" + Quoted(received.message.typeTags) + ",\"arguments\":[";
  const char* separator = "";
  for (const OscArgument& argument : received.message.arguments) {
    line.append(separator).append(ArgumentJson(argument));
    separator = ",";
  }
  return line.append("]}");
}

}  // namespace corvalint::device
