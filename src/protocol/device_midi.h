#pragma once

#include <cstddef>
#include <cstdint>

namespace corvalint {

// What a device's "/midi" says; docs/wire-format.md has its bytes. The pointers lead into the
// packet that it was read from.
struct DeviceMidi {
  const char* name;  // of the endpoint, zero-terminated
  std::int32_t id;
  std::int64_t deviceTime;  // nanoseconds in the device's clock
  const std::uint8_t* data;
  std::uint32_t size;
};

// Reads the one kind of packet that comes a thousand times for each other one: a "/midi" by itself
// with the type tags ",sihb". False for everything else, also for one whose sizes lie; such a
// packet goes the general way, which can read or refuse it. A packet that is read here would be
// read there to the same values.
bool ReadDeviceMidi(const char* packet, std::size_t size, DeviceMidi& message);

}  // namespace corvalint
