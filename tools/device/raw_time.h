#pragma once

#include <cstdint>

namespace corvalint::device {

// Nanoseconds of the machine's raw monotonic clock (CLOCK_MONOTONIC_RAW), which no time service
// adjusts. The same clock in every process of the machine, so that times of two programs compare.
// Any thread.
std::int64_t RawNow();

}  // namespace corvalint::device
