#pragma once

#include <string>

#include "fault_plan.h"

namespace corvalint::faults {

// Everything that the bridge does, once, on fakes and in simulated time, while the plan's calls
// fail; then, with nothing failing any more, the same again as far as it must work. Judges into the
// report. Once in a process, whose end must follow. `folder` is empty.
void RunScenario(const Plan& plan, Report& report, const std::string& folder);

}  // namespace corvalint::faults
