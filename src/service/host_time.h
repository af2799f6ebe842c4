#pragma once

#include <cstdint>

namespace corvalint {

// Ticks of the performance counter per second, read once when the library is loaded; never 0.
extern const std::int64_t PerformanceFrequency;

// The host's clock: signed nanoseconds, counter * 1000000000 / PerformanceFrequency. The product
// wraps modulo 2^64 on purpose, after some 15 minutes of uptime at 10 MHz: the devices' clock
// alignment and the endpoints' unique ids are defined on the wrapped value. Any thread.
std::int64_t HostTimeNanoseconds();

// a + b and a - b modulo 2^64, for times that a device may have chosen.
constexpr std::int64_t WrappingAdd(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}
constexpr std::int64_t WrappingSubtract(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

}  // namespace corvalint
