#pragma once

#include <cstdint>

namespace corvalint::soak {

// The system's clock whose sleeps are shortened, installed for as long as it lives; one at a time.
// The library waits seconds where nothing but time has to pass, and those are not worth a test's
// time.
class QuickClock {
 public:
  // A sleep takes that part of its time, but some microseconds at least.
  explicit QuickClock(std::uint32_t divisor);
  ~QuickClock();
  QuickClock(const QuickClock&) = delete;
  QuickClock& operator=(const QuickClock&) = delete;
};

}  // namespace corvalint::soak
