#include "soak/quick_clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "platform/clock.h"

namespace corvalint::soak {

namespace {

// A loop that only sleeps must not keep the others from running.
constexpr std::uint64_t kShortestMicroseconds = 200;

std::atomic<std::uint32_t> divisor{1};

void Sleep(std::uint32_t milliseconds) {
  const std::uint64_t wanted = std::uint64_t{milliseconds} * 1000 / divisor;
  std::this_thread::sleep_for(std::chrono::microseconds(std::max(wanted, kShortestMicroseconds)));
}

}  // namespace

QuickClock::QuickClock(std::uint32_t newDivisor) {
  static const ClockApi kTable{
      .counter = ClockApi::System().counter,
      .frequency = ClockApi::System().frequency,
      .sleep = Sleep,
      .localTime = ClockApi::System().localTime,
  };
  divisor = newDivisor;
  Install<ClockApi>(&kTable);
}

QuickClock::~QuickClock() { Install<ClockApi>(nullptr); }

}  // namespace corvalint::soak
