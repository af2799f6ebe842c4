#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// Local calendar time; month 1 to 12, day 1 to 31.
struct LocalTime {
  int year, month, day, hour, minute, second;
};

// Time. Any thread; nothing here can fail.
struct ClockApi {
  // The high-resolution counter, in ticks; never runs backwards.
  std::int64_t (*counter)();
  // Ticks of `counter` per second, constant while the process lives; 10,000,000 on Windows 10 and
  // later and on POSIX, so that the arithmetic on it wraps at the same places everywhere.
  std::int64_t (*frequency)();
  // Blocks the calling thread for at least that many milliseconds.
  void (*sleep)(std::uint32_t milliseconds);
  // The time of day where the user is.
  LocalTime (*localTime)();

  static const ClockApi& System();
};

}  // namespace corvalint
