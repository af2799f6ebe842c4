#include "timing/clock_scenes.h"

namespace corvalint::timing {

namespace {

#include "timing/clock_scenes.inc"

}  // namespace

std::span<const ClockScene> ClockScenes() { return kScenes; }

}  // namespace corvalint::timing
