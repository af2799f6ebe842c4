#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>
#include <vector>

namespace corvalint::harness {

// The parts between separators; an empty text has none, an empty part is a part.
inline std::vector<std::string_view> Words(std::string_view text, char separator = ' ') {
  std::vector<std::string_view> words;
  if (text.empty()) return words;
  for (;;) {
    const std::size_t end = text.find(separator);
    words.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return words;
    text.remove_prefix(end + 1);
  }
}

// A decimal number; 0 for anything else.
inline std::int64_t ToNumber(std::string_view text) {
  std::int64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace corvalint::harness
