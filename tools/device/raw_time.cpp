#include "device/raw_time.h"

#include <ctime>

namespace corvalint::device {

std::int64_t RawNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

}  // namespace corvalint::device
