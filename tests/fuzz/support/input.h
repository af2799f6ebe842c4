#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvalint::fuzz {

// Takes a fuzzer's input apart from its beginning. Past its end there are zeroes and empty texts.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest(reinterpret_cast<const char*>(data), size) {}

  bool Done() const { return rest.empty(); }

  std::uint8_t Byte() {
    if (rest.empty()) return 0;
    const auto first = static_cast<std::uint8_t>(rest.front());
    rest.remove_prefix(1);
    return first;
  }

  std::string_view Bytes(std::size_t count) {
    const std::string_view taken = rest.substr(0, std::min(count, rest.size()));
    rest.remove_prefix(taken.size());
    return taken;
  }

  std::string_view Rest() { return Bytes(rest.size()); }

  // Big-endian.
  std::uint64_t Number(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | Byte();
    return value;
  }
  std::int32_t Int32() { return static_cast<std::int32_t>(Number(4)); }
  std::int64_t Int64() { return static_cast<std::int64_t>(Number(8)); }

 private:
  std::string_view rest;
};

}  // namespace corvalint::fuzz
