#pragma once

#include <string_view>
#include <vector>

#include "fuzz/support/input.h"

namespace corvalint::fuzz {

// The input of the stream target: how the wire behaves, then the bytes of one or more connections.
//   byte 0     bits: 1 streams end with an error, 2 sends in pieces, 4 no threads, 8 the driver
//              refuses ports, 16 and 32 connections less one; 192 alone stop in the middle
//   byte 1     low four bits: bytes of the pattern, which follow
//   2 bytes    size of each connection but the last
//   the rest   what the device sends, connection after connection
struct StreamInput {
  std::uint8_t flags = 0;
  std::string_view pattern;
  std::vector<std::string_view> connections;

  explicit StreamInput(Input input) {
    flags = input.Byte();
    pattern = input.Bytes(input.Byte() & 15);
    std::vector<std::size_t> sizes;
    for (int i = (flags >> 4) & 3; i > 0; --i) {
      sizes.push_back(static_cast<std::size_t>(input.Number(2)));
    }
    for (const std::size_t size : sizes) connections.push_back(input.Bytes(size));
    connections.push_back(input.Rest());
  }
};

}  // namespace corvalint::fuzz
