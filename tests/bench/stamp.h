#pragma once

#include <cstdint>

namespace corvalint::bench {

// A moment in the life of the calling thread.
struct Stamp {
  std::int64_t wall = 0;         // nanoseconds of the monotonic clock
  std::int64_t cpu = 0;          // nanoseconds that the thread has computed, in the system too
  std::int64_t allocations = 0;  // what it has taken from the heap

  static Stamp Now();
};

// Nanoseconds of the monotonic clock.
std::int64_t WallNanoseconds();

}  // namespace corvalint::bench
