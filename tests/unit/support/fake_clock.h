#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/clock.h"

namespace corvalint::test {

// A clock that stands still until it is moved by hand, installed for as long as it lives; one at a
// time. Ticks are 100 ns. Any thread; every thread that sleeps must have ended when its life ends.
class FakeClock {
 public:
  explicit FakeClock(std::int64_t ticks = 0);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  // What the next read of the counter gives.
  void SetTicks(std::int64_t ticks);
  void Advance(std::int64_t ticks);
  std::int64_t Ticks() const;
  // Each read moves the counter on, after it was read: 0, or at least 10 ticks (1000 ns), so that
  // numbers made from two reads differ by more than a device's place in a list.
  void StepPerRead(std::int64_t ticks);

  void SetLocalTime(const LocalTime& time);

  // Runs inside every sleep, on the sleeping thread, once the sleep is noted and the counter has
  // moved on by it.
  void WhenSleeping(std::function<void(std::uint32_t)> action);
  // The sleeps since the last time, in milliseconds, oldest first.
  std::vector<std::uint32_t> TakeSleeps();
  // Waits until there were that many sleeps in all; false, and a failed test, when that takes more
  // than half a minute.
  bool WaitForSleeps(std::size_t count);
};

}  // namespace corvalint::test
