#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "clients/big_endian.h"

namespace corvalint::test {

// OSC packets put together byte by byte, so that a test can expect whole packets, and can also make
// wrong ones. Each function gives the bytes of one piece.

inline std::string OscPadded(std::string bytes) {
  bytes.resize((bytes.size() + 3) & ~std::size_t{3}, '\0');
  return bytes;
}

inline std::string OscText(const std::string& text) { return OscPadded(text + '\0'); }

inline std::string OscInt32(std::uint32_t value) {
  std::array<char, 4> bytes;
  WriteBigEndian32(bytes.data(), value);
  return {bytes.data(), bytes.size()};
}
inline std::string OscInt32(std::int32_t value) {
  return OscInt32(static_cast<std::uint32_t>(value));
}

inline std::string OscInt64(std::int64_t value) {
  const auto bits = static_cast<std::uint64_t>(value);
  return OscInt32(static_cast<std::uint32_t>(bits >> 32)) +
         OscInt32(static_cast<std::uint32_t>(bits));
}

inline std::string OscDouble(double value) { return OscInt64(std::bit_cast<std::int64_t>(value)); }

inline std::string OscBlobBytes(const std::string& bytes) {
  return OscInt32(static_cast<std::uint32_t>(bytes.size())) + OscPadded(bytes);
}

// `tags` without the comma; `arguments` are the pieces in order.
inline std::string OscMessage(const std::string& address, const std::string& tags,
                              const std::string& arguments) {
  return OscText(address) + OscText("," + tags) + arguments;
}

inline std::string OscBundle(std::int64_t timeTag, const std::vector<std::string>& elements) {
  std::string bytes = OscText("#bundle") + OscInt64(timeTag);
  for (const std::string& element : elements) {
    bytes += OscInt32(static_cast<std::uint32_t>(element.size())) + element;
  }
  return bytes;
}

// The messages of the device stream.
inline std::string MidiMessage(const std::string& name, std::int32_t id, std::int64_t time,
                               const std::string& midi) {
  return OscMessage("/midi", "sihb",
                    OscText(name) + OscInt32(id) + OscInt64(time) + OscBlobBytes(midi));
}
inline std::string EndpointMessage(const std::string& address, const std::string& name,
                                   std::int32_t id) {
  return OscMessage(address, "si", OscText(name) + OscInt32(id));
}

}  // namespace corvalint::test
