#pragma once

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint::desk {

using Bytes = std::vector<std::uint8_t>;

// Small text helpers of the control protocol. All throw std::runtime_error on malformed input.

inline void AppendHex(std::string& out, const std::uint8_t* data, std::size_t length) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const std::size_t start = out.size();
  out.resize(start + 2 * length);
  for (std::size_t i = 0; i < length; ++i) {
    out[start + 2 * i] = kDigits[data[i] >> 4];
    out[start + 2 * i + 1] = kDigits[data[i] & 15];
  }
}

inline std::string HexOf(const void* data, std::size_t length) {
  std::string out;
  AppendHex(out, static_cast<const std::uint8_t*>(data), length);
  return out;
}

inline std::string HexOf(std::string_view bytes) { return HexOf(bytes.data(), bytes.size()); }

inline std::uint8_t HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<std::uint8_t>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<std::uint8_t>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F') return static_cast<std::uint8_t>(digit - 'A' + 10);
  throw std::runtime_error("not a hex digit");
}

inline Bytes BytesFromHex(std::string_view text) {
  if (text.size() % 2 != 0) throw std::runtime_error("odd number of hex digits");
  Bytes bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(HexDigit(text[2 * i]) << 4 | HexDigit(text[2 * i + 1]));
  }
  return bytes;
}

inline std::string TextFromHex(std::string_view text) {
  const Bytes bytes = BytesFromHex(text);
  return std::string(bytes.begin(), bytes.end());
}

// Decimal, or hexadecimal after "0x"; a leading minus is allowed for decimal numbers.
inline std::int64_t NumberFrom(std::string_view text) {
  const bool hex = text.starts_with("0x");
  if (hex) text.remove_prefix(2);
  std::int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, hex ? 16 : 10);
  if (error != std::errc() || stop != end || text.empty()) {
    throw std::runtime_error("not a number: " + std::string(text));
  }
  return value;
}

// The parts between separators; an empty text has no parts.
inline std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return parts;
}

}  // namespace corvalint::desk
