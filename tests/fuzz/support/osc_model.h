#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace corvalint::fuzz {

// A second reader of OSC packets, written from the format alone, that the real one is compared
// with. Positions are offsets into the packet.

struct OscArgumentPlace {
  char tag;
  std::size_t at;    // of the argument's first byte; a blob's bytes, after its size
  std::size_t size;  // of a text without its zero, of a blob without its padding, else 0, 4 or 8
};

struct OscEvent {
  enum Kind { bundleStarted, message, bundleFinished };
  Kind kind;
  std::size_t at;    // of the message or bundle
  std::size_t size;  // 0 for the end of a bundle
};

// Big-endian, from bytes that are there.
std::uint64_t OscNumber(std::string_view bytes);

// Whether the bytes are a whole message; its arguments then. Texts end at the first zero byte that
// stands last in a group of four, as the format's padding has it, and are read up to their first
// zero.
bool ReadOscMessage(std::string_view message, std::vector<OscArgumentPlace>& arguments);

// What a packet should cause, in order; false when it goes wrong after that.
bool ReadOscPacket(std::string_view packet, std::vector<OscEvent>& events);

}  // namespace corvalint::fuzz
