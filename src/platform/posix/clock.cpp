#include "platform/clock.h"

#include <cerrno>
#include <ctime>

namespace corvalint {
namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kNanosecondsPerTick = 1'000'000'000 / kTicksPerSecond;

std::int64_t Counter() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * kTicksPerSecond + now.tv_nsec / kNanosecondsPerTick;
}

std::int64_t Frequency() { return kTicksPerSecond; }

void SleepFor(std::uint32_t milliseconds) {
  timespec rest{};
  rest.tv_sec = milliseconds / 1000;
  rest.tv_nsec = std::int64_t{milliseconds % 1000} * 1'000'000;
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

LocalTime Now() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
          parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

}  // namespace

const ClockApi& ClockApi::System() {
  static constexpr ClockApi table{
      .counter = Counter, .frequency = Frequency, .sleep = SleepFor, .localTime = Now};
  return table;
}

}  // namespace corvalint
