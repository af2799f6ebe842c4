#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvalint::host {

// The text between quotes in JSON. The input is valid UTF-8 and passes through; quotes, backslashes
// and control characters are escaped.
std::string JsonEscape(std::string_view text);

// Two lower-case hexadecimal digits for each byte.
std::string HexBytes(std::string_view bytes);

// Writes one JSON object, its members in the order of the calls. Keys are plain ASCII words.
class JsonObject {
 public:
  JsonObject& Number(std::string_view key, std::int64_t value);
  JsonObject& Bool(std::string_view key, bool value);
  // The value is valid UTF-8.
  JsonObject& String(std::string_view key, std::string_view value);
  // The value is JSON already.
  JsonObject& Raw(std::string_view key, std::string_view json);

  // The whole object, on one line and without a line end.
  std::string Text() const { return "{" + members + "}"; }

 private:
  std::string members;
};

}  // namespace corvalint::host
