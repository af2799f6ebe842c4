#pragma once

#include <cstdint>
#include <string>

#include "platform/winmm_api.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {

// Opens a destination's device, announces it and prints. On failure the destination is off and
// unavailable. Returns winmm's code, 0 on success. Device lock held.
MidiResult OpenMidiDestination(MidiEndpointRegistry& registry, MidiDestinationEndpoint& destination)
    CORVALINT_REQUIRES(registry.deviceLock);

// Closes the device of a destination that has a handle, and leaves it off. A message on its way out
// is cut short first. The registry's device lock is held.
void CloseMidiDestination(MidiDestinationEndpoint& destination);

// Writes MIDI to every destination with that unique id, open or not, in the order of the list; true
// when there was one. The name is not used. Blocks until the driver has given the bytes back. Any
// thread that may wait, holding no lock.
bool SendToMidiDestinations(MidiEndpointRegistry& registry, const std::uint8_t* data,
                            std::uint32_t length, std::string name, std::int32_t uniqueId);

// Writes one block to one destination, as a long message whatever its length. A destination that is
// closed fails as winmm fails for a null handle; a failure prints winmm's name for it.
void SendLongMidi(MidiDestinationEndpoint& destination, const std::uint8_t* data,
                  std::uint32_t length) CORVALINT_EXCLUDES(destination.outputLock);

}  // namespace corvalint
