#pragma once

#include <windows.h>

#include <cstdint>

namespace corvalint::desk {

// The performance counter in nanoseconds. Under Wine it is the host's CLOCK_MONOTONIC_RAW in steps
// of 100 ns, so native programs can subtract their own times from it.
inline std::int64_t NowNs() {
  LARGE_INTEGER counter;
  LARGE_INTEGER frequency;
  QueryPerformanceCounter(&counter);
  QueryPerformanceFrequency(&frequency);
  const std::int64_t whole = counter.QuadPart / frequency.QuadPart;
  const std::int64_t rest = counter.QuadPart % frequency.QuadPart;
  return whole * 1'000'000'000 + rest * 1'000'000'000 / frequency.QuadPart;
}

}  // namespace corvalint::desk
