#pragma once

#include "soak/world.h"

namespace corvalint::soak {

// What works between a device, the desktop and its programs, tried once. Each complains when
// something does not arrive. Nobody else may play meanwhile.

// MIDI of device `number` into a port of its own and to the output with that id, and from a program
// into that port. The port is published under a name of the device's own; it is there afterwards,
// and WithdrawPort takes it away.
void PlayBothWays(World& world, std::size_t number, int outputId);
void WithdrawPort(World& world, std::size_t number);
// Every attached device hears a note of the first keyboard that is on.
void HearKeyboard(World& world);
// OSC between a device and a program both ways, through a port that the device opens. `remove` says
// whether it is closed afterwards, or left for the device's departure.
void UseOsc(WorldDevice& device, bool remove);

}  // namespace corvalint::soak
