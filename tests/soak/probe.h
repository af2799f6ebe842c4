#pragma once

#include "soak/world.h"

namespace corvalint::soak {

// Looks whether everything works, on a world in which nobody does anything and nobody is attached:
// all devices arrive, withdraw what they may have published, send and hear MIDI on every way and
// OSC both ways, and leave; nothing is left of them. Complains of all that is wrong.
void ProbeEverything(World& world);

}  // namespace corvalint::soak
