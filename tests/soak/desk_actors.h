#pragma once

#include "soak/app_actor.h"

namespace corvalint::soak {

// One thing each that happens on the desktop while devices come and go.

// The host asks about everything that it lists, and complains of a port that a device published.
void PollStep(Surroundings& around, Random& random, Actor& actor);
// The host switches some endpoint on or off.
void ToggleStep(Random& random, Actor& actor);
// Somebody plays on a keyboard that is on.
void KeyboardStep(World& world, Random& random, Actor& actor);
// A program plays into some device's port.
void ProgramStep(World& world, Random& random, Actor& actor);
// Keyboards and sound modules are plugged in and out, and some are in use by others.
void DeskStep(World& world, Random& random, Actor& actor);
// A program talks to the OSC ports and reads what comes.
void UdpStep(const UdpEnd& program, const Surroundings& around, Random& random, Actor& actor);
// One of the devices arrives or leaves.
void HubStep(World& world, std::size_t first, std::size_t step, Random& random, Actor& actor);

}  // namespace corvalint::soak
