#pragma once

#include <cstdint>

namespace corvalint {

// How one device's clock lies to the host's, in nanoseconds. Differences wrap modulo 2^64, since
// the device chooses its times and the host's clock wraps by itself. It survives reconnections. For
// the client's own thread.
struct ClockAlignment {
  std::int64_t lastDeviceTime = 0;   // what the device sent last; for whoever looks on
  std::int64_t clockOffset = 0;      // smoothed host time minus device time
  std::int64_t clockOffsetCopy = 0;  // as midiTimeOffset; for whoever looks on
  std::int64_t midiTimeOffset = 0;   // added to the device's time stamps of relayed MIDI
  double driftRatio = 1.0;
  std::int64_t initHostTime = 0;
  std::int64_t initOffset = 0;

  // Starts afresh: the device's clock shows `deviceTime` while the host's shows `hostTime`.
  void Initialise(std::int64_t deviceTime, std::int64_t hostTime);
  // Moves the offset 70 % of the way to what is measured now, and midiTimeOffset 70 % of the way to
  // that. Before any Initialise it works from zeroes.
  void Update(std::int64_t deviceTime, std::int64_t hostTime);
  // What the device is told of the drift: 1 / (driftRatio + 1) - 1; infinite or not a number where
  // the arithmetic gives that.
  double Drift() const { return 1.0 / (driftRatio + 1.0) - 1.0; }
};

// Truncates toward zero; what 64 bits cannot hold, and what is no number, becomes the smallest
// number, as the x86 instruction has it.
std::int64_t TruncateToInt64(double value);

}  // namespace corvalint
