#include "windows/support/wire_bytes.h"

#include <cstring>

namespace corvalint::windows_test {

using device::Bytes;

Bytes Joined(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }

Bytes BigEndian(std::uint64_t value, std::size_t width) {
  Bytes bytes;
  for (std::size_t i = width; i-- > 0;) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  return bytes;
}

Bytes BigEndian(std::int64_t value) { return BigEndian(static_cast<std::uint64_t>(value), 8); }

Bytes BigEndian(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return BigEndian(bits, 8);
}

Bytes Filled(Bytes bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

Bytes Framed(const std::vector<Bytes>& parts) {
  const Bytes packet = Joined(parts);
  return Joined({BigEndian(packet.size(), 4), {0, 0, 0, 2, 0, 0, 0, 2}, packet});
}

Bytes OscText(std::string_view text) { return Filled(Joined({Text(text), {0}})); }

Bytes MidiFrame(std::string_view name, std::int32_t id, std::int64_t time, const Bytes& midi) {
  return Framed({OscText("/midi"), OscText(",sihb"), OscText(name),
                 BigEndian(static_cast<std::uint32_t>(id), 4), BigEndian(time),
                 BigEndian(midi.size(), 4), Filled(midi)});
}

Bytes EndpointFrame(std::string_view address, std::string_view name, std::int32_t id) {
  return Framed({OscText(address), OscText(",si"), OscText(name),
                 BigEndian(static_cast<std::uint32_t>(id), 4)});
}

std::int64_t Wrapped(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                   static_cast<std::uint64_t>(right));
}

}  // namespace corvalint::windows_test
