#include "protocol/clock_alignment.h"

#include <limits>

#include "service/host_time.h"

namespace corvalint {

namespace {

constexpr double kNewWeight = 0.7;
// What 1 - 0.7 gives in double arithmetic, and not 0.3, on purpose: it shows in the last digits.
constexpr double kOldWeight = 0.30000000000000004;

// This file must be compiled without contraction of a * b + c: a fused multiply-add rounds once
// where each of the two operations is to round by itself.
std::int64_t Smooth(std::int64_t measured, std::int64_t old) {
  const double newPart = static_cast<double>(measured) * kNewWeight;
  const double oldPart = static_cast<double>(old) * kOldWeight;
  return TruncateToInt64(newPart + oldPart);
}

}  // namespace

void ClockAlignment::Initialise(std::int64_t deviceTime, std::int64_t hostTime) {
  lastDeviceTime = deviceTime;
  const std::int64_t offset = WrappingSubtract(hostTime, deviceTime);
  clockOffset = offset;
  clockOffsetCopy = offset;
  initOffset = offset;
  midiTimeOffset = offset;
  initHostTime = hostTime;
}

void ClockAlignment::Update(std::int64_t deviceTime, std::int64_t hostTime) {
  lastDeviceTime = deviceTime;
  driftRatio = static_cast<double>(WrappingSubtract(initOffset, clockOffset)) /
               static_cast<double>(WrappingSubtract(hostTime, initHostTime));
  clockOffset = Smooth(WrappingSubtract(hostTime, deviceTime), clockOffset);
  midiTimeOffset = Smooth(clockOffset, midiTimeOffset);
  clockOffsetCopy = midiTimeOffset;
}

std::int64_t TruncateToInt64(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (value >= -kLimit && value < kLimit) return static_cast<std::int64_t>(value);
  return std::numeric_limits<std::int64_t>::min();
}

}  // namespace corvalint
