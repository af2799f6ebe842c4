#include "platform/clock.h"

#include "platform/windows/system_headers.h"

namespace corvalint {
namespace {

std::int64_t Counter() {
  LARGE_INTEGER value{};
  QueryPerformanceCounter(&value);
  return value.QuadPart;
}

std::int64_t Frequency() {
  LARGE_INTEGER value{};
  QueryPerformanceFrequency(&value);
  return value.QuadPart;
}

void SleepFor(std::uint32_t milliseconds) { Sleep(milliseconds); }

LocalTime Now() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

}  // namespace

const ClockApi& ClockApi::System() {
  static constexpr ClockApi table{
      .counter = Counter, .frequency = Frequency, .sleep = SleepFor, .localTime = Now};
  return table;
}

}  // namespace corvalint
