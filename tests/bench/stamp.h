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

// What something has cost a thread.
struct Cost {
  double cpu = 0;   // nanoseconds that it has computed
  double wall = 0;  // nanoseconds by the clock on the wall
  double allocations = 0;

  void Add(const Stamp& begin, const Stamp& end);
  // For each of so many.
  Cost For(double count) const { return {cpu / count, wall / count, allocations / count}; }
};

// Nanoseconds of the monotonic clock.
std::int64_t WallNanoseconds();

}  // namespace corvalint::bench
