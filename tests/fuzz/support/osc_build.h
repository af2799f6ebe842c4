#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvalint::fuzz {

// Builds one OSC message, argument by argument.
class OscBuilder {
 public:
  explicit OscBuilder(std::string_view theAddress) : address(theAddress) {}

  OscBuilder& Text(std::string_view text) {
    tags += 's';
    arguments += Padded(std::string(text) + '\0');
    return *this;
  }
  OscBuilder& Int32(std::int32_t value) {
    tags += 'i';
    arguments += Bytes(static_cast<std::uint32_t>(value), 4);
    return *this;
  }
  OscBuilder& Int64(std::int64_t value) {
    tags += 'h';
    arguments += Bytes(static_cast<std::uint64_t>(value), 8);
    return *this;
  }
  OscBuilder& Double(double value) {
    tags += 'd';
    arguments += Bytes(std::bit_cast<std::uint64_t>(value), 8);
    return *this;
  }
  OscBuilder& Float(float value) {
    tags += 'f';
    arguments += Bytes(std::bit_cast<std::uint32_t>(value), 4);
    return *this;
  }
  OscBuilder& Blob(std::string_view bytes) {
    tags += 'b';
    arguments += Bytes(bytes.size(), 4) + Padded(std::string(bytes));
    return *this;
  }

  std::string Packet() const {
    return Padded(std::string(address) + '\0') + Padded(tags + '\0') + arguments;
  }

 private:
  static std::string Padded(std::string bytes) {
    while (bytes.size() % 4 != 0) bytes += '\0';
    return bytes;
  }
  static std::string Bytes(std::uint64_t value, int count) {
    std::string bytes;
    for (int i = count - 1; i >= 0; --i) bytes += static_cast<char>(value >> 8 * i);
    return bytes;
  }

  std::string_view address;
  std::string tags = ",";
  std::string arguments;
};

}  // namespace corvalint::fuzz
