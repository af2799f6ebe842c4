#include "host/json.h"

namespace corvalint::host {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

std::string HexByte(unsigned char byte) { return {kHexDigits[byte >> 4], kHexDigits[byte & 15]}; }

}  // namespace

std::string JsonEscape(std::string_view text) {
  std::string escaped;
  for (char character : text) {
    if (character == '"' || character == '\\') {
      escaped += '\\';
      escaped += character;
    } else if (static_cast<unsigned char>(character) < 0x20) {
      escaped += "\\u00" + HexByte(static_cast<unsigned char>(character));
    } else {
      escaped += character;
    }
  }
  return escaped;
}

std::string HexBytes(std::string_view bytes) {
  std::string hex;
  for (char byte : bytes) hex += HexByte(static_cast<unsigned char>(byte));
  return hex;
}

JsonObject& JsonObject::Number(std::string_view key, std::int64_t value) {
  return Raw(key, std::to_string(value));
}

JsonObject& JsonObject::Bool(std::string_view key, bool value) {
  return Raw(key, value ? "true" : "false");
}

JsonObject& JsonObject::String(std::string_view key, std::string_view value) {
  return Raw(key, '"' + JsonEscape(value) + '"');
}

JsonObject& JsonObject::Raw(std::string_view key, std::string_view json) {
  if (!members.empty()) members += ',';
  members += '"';
  members += key;
  members += "\":";
  members += json;
  return *this;
}

}  // namespace corvalint::host
