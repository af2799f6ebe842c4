#include "bench/stamp.h"

#include <ctime>

#include "unit/support/allocation_count.h"

namespace corvalint::bench {

namespace {

std::int64_t Read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

std::int64_t WallNanoseconds() { return Read(CLOCK_MONOTONIC); }

Stamp Stamp::Now() {
  return {Read(CLOCK_MONOTONIC), Read(CLOCK_THREAD_CPUTIME_ID), test::allocations};
}

void Cost::Add(const Stamp& begin, const Stamp& end) {
  cpu += static_cast<double>(end.cpu - begin.cpu);
  wall += static_cast<double>(end.wall - begin.wall);
  allocations += static_cast<double>(end.allocations - begin.allocations);
}

}  // namespace corvalint::bench
