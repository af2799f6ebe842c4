#pragma once

#include <vector>

#include "host/doctor.h"

namespace corvalint::host {

// Opens every MIDI input of this desktop, the ports of apps among them, counts the messages that
// come in and closes them again. SysEx alone is not heard. Without winmm.dll there are no inputs.
std::vector<HeardInput> ListenToInputs(int seconds);

}  // namespace corvalint::host
