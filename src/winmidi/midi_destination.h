#pragma once

#include <cstdint>
#include <vector>

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

// Writes MIDI to every one of the destinations, open or not, in their order; true when there was
// one. Blocks until the driver has given the bytes back. Any thread that may wait, holding no lock.
bool SendToMidiDestinations(const std::vector<MidiDestinationPointer>& destinations,
                            const std::uint8_t* data, std::uint32_t length);

// Writes one block to one destination, as a long message whatever its length. A destination that is
// closed fails as winmm fails for a null handle; a failure prints winmm's name for it.
void SendLongMidi(MidiDestinationEndpoint& destination, const std::uint8_t* data,
                  std::uint32_t length) CORVALINT_EXCLUDES(destination.outputLock);

}  // namespace corvalint
