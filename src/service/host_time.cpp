#include "service/host_time.h"

#include "platform/clock.h"

namespace corvalint {

namespace {

std::int64_t ReadFrequency() {
  const std::int64_t frequency = ClockApi::System().frequency();
  return frequency > 0 ? frequency : 1;
}

}  // namespace

// Reading it in a static initialiser is the only thing that the library does when it is loaded.
const std::int64_t PerformanceFrequency = ReadFrequency();

std::int64_t HostTimeNanoseconds() {
  const auto ticks = static_cast<std::uint64_t>(Use<ClockApi>().counter());
  return static_cast<std::int64_t>(ticks * 1000000000u) / PerformanceFrequency;
}

}  // namespace corvalint
