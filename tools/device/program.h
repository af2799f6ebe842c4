#pragma once

#include "device/options.h"

namespace corvalint::device {

// Runs the device as the options ask, printing to standard output, until SIGINT or SIGTERM, or as
// --once says. Gives the exit status. Throws std::runtime_error for a port, song or record file
// that cannot be used.
int RunProgram(const ProgramOptions& options);

}  // namespace corvalint::device
