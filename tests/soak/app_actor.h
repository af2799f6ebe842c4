#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "soak/actors.h"
#include "soak/world.h"

namespace corvalint::soak {

// What the companion apps and the desktop know of each other.
struct Surroundings {
  std::vector<std::uint16_t> oscPorts;         // numbers that apps open
  std::vector<std::uint16_t> programPorts;     // numbers of the desktop's UDP programs
  std::atomic<std::int32_t> destinationId{0};  // of some desktop output, as the host saw it last
};

// One thing that the companion app of a device does, or that happens to its cable.
void AppStep(WorldDevice& device, std::size_t number, const Surroundings& around, Random& random,
             Actor& actor);

}  // namespace corvalint::soak
