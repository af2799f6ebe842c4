#pragma once

#include <cstdint>
#include <span>

// What happens to the clocks of host and device, and what the device is answered, to the bit.
namespace corvalint::timing {

// One timing message of a device and what must come of it.
struct ClockStep {
  enum Kind { kInit, kUpdate };
  Kind kind;
  std::int64_t ticks;       // what the host's 10 MHz counter shows
  std::int64_t deviceTime;  // that the message carries
  std::int64_t offset;      // that the answer carries
  std::uint64_t drift;      // bits of the double that the answer to an update carries
  std::int64_t relayed;     // what becomes of `deviceTime` in MIDI that goes on to other devices
};

struct ClockScene {
  const char* name;
  std::span<const ClockStep> steps;  // from a device's first connection on
};

// All scenes, as make_scenes.py computed them. They live as long as the program.
std::span<const ClockScene> ClockScenes();

}  // namespace corvalint::timing
