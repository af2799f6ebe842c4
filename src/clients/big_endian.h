#pragma once

#include <cstdint>

namespace corvalint {

// 32-bit numbers in network byte order, at any address.
inline std::uint32_t ReadBigEndian32(const char* at) {
  const auto byte = [at](int i) { return std::uint32_t{static_cast<unsigned char>(at[i])}; };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

inline void WriteBigEndian32(char* at, std::uint32_t value) {
  at[0] = static_cast<char>(value >> 24);
  at[1] = static_cast<char>(value >> 16);
  at[2] = static_cast<char>(value >> 8);
  at[3] = static_cast<char>(value);
}

}  // namespace corvalint
