#pragma once

#include <string>
#include <vector>

#include "timing/clock_scenes.h"

namespace corvalint::timing {

// Lets a device send the messages of a scene to the library's own client while the host's counter
// stands where each step says, and compares every byte that goes out: the answer, and a relayed
// "/midi". Gives a line for each difference. One scene at a time; it replaces the clock meanwhile.
std::vector<std::string> PlayScene(const ClockScene& scene);

}  // namespace corvalint::timing
