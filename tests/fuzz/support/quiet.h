#pragma once

#include <cstdint>
#include <string>

namespace corvalint::fuzz {

// What the library has printed since a target cleared it, kept in memory: nothing reaches the
// process's own output.
struct Console {
  std::string out;
  std::string error;
};

// Replaces the process's standard streams, gives the library a log that writes nothing, and a clock
// that only moves when it is read or slept through. On the first call; the console on every call.
Console& Quieten();

// The clock's ticks of 100 ns; a target sets them at the beginning of a run.
extern std::int64_t clockTicks;
// Milliseconds slept since a target cleared it. A run that sleeps for more than a day fails.
extern std::uint64_t sleptMilliseconds;
// Run inside each sleep, if a target sets it.
extern void (*whenSleeping)(std::uint32_t milliseconds);

}  // namespace corvalint::fuzz
