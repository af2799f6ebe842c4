#pragma once

#include <cstddef>

namespace corvalint {

// The bytes that an OSC text with its zero byte and its padding takes at the front of `size` bytes;
// 0 when it does not end in them. The OSC library looks for the end at every fourth byte only,
// whatever stands between, so this does too.
inline std::size_t OscTextSize(const char* text, std::size_t size) {
  if (size >= 4 && text[0] == '\0') return 4;
  std::size_t last = 3;
  while (last < size && text[last] != '\0') last += 4;
  return last < size ? last + 1 : 0;
}

// The OSC library is given only what these let pass: every size and offset that a packet claims
// lies inside it. What is wrong in other ways is left to that library to refuse.

// Every string, number and blob of a message, its texts ended where the OSC library ends them.
// Throws osc::MalformedMessageException: "invalid blob size" for a blob of more than 0x7FFFFFFC
// bytes, "arguments exceed message size" and its fellows for the rest.
void CheckMessage(const char* message, std::size_t size);

// The sizes of a bundle's own elements, not what is in them: the OSC library adds them up in 32
// bits and would walk in a circle. Throws osc::MalformedBundleException "packet too short for
// bundle element".
void CheckBundle(const char* bundle, std::size_t size);

}  // namespace corvalint
