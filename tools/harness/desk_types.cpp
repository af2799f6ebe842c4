#include "harness/desk_types.h"

#include <charconv>
#include <stdexcept>
#include <utility>

namespace corvalint::harness {

InputItem ItemOf(Bytes message) {
  const bool isLong = message.size() > 3 || (!message.empty() && message[0] == 0xF0);
  return {isLong ? InputItem::Kind::kLong : InputItem::Kind::kShort, std::move(message)};
}

std::string HexOf(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(2 * bytes.size());
  for (const char letter : bytes) {
    const auto byte = static_cast<unsigned char>(letter);
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
  }
  return out;
}

Bytes BytesFromHex(std::string_view hex) {
  Bytes bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* start = hex.data() + 2 * i;
    if (std::from_chars(start, start + 2, bytes[i], 16).ptr != start + 2) {
      throw std::runtime_error("not hex: " + std::string(hex));
    }
  }
  return bytes;
}

std::string HexOfUtf16(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit >> 8);
    bytes += static_cast<char>(unit & 0xFF);
  }
  return HexOf(bytes);
}

std::u16string Utf16FromHex(std::string_view hex) {
  const Bytes bytes = BytesFromHex(hex);
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text += static_cast<char16_t>(bytes[i] << 8 | bytes[i + 1]);
  }
  return text;
}

std::u16string Widened(std::string_view bytes) {
  std::u16string text;
  for (const char letter : bytes) text += static_cast<unsigned char>(letter);
  return text;
}

}  // namespace corvalint::harness
