#pragma once

#include "host/doctor.h"

namespace corvalint::host {

// The doctor's hands on Windows. Made before the bridge is loaded, with its lines being kept. For
// one examination in the life of the process.
Instruments MakeInstruments();

}  // namespace corvalint::host
