#pragma once

#include <cstdint>

#include "platform/winmm_api.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {

// Opens a source's device, queues its four buffers and starts it; then prints and announces it. On
// failure the source is off and unavailable. Returns winmm's code, 0 on success. Device lock held.
MidiResult OpenMidiSource(MidiEndpointRegistry& registry, const MidiSourcePointer& source)
    CORVALINT_REQUIRES(registry.deviceLock);

// Closes a source that has a handle and is available, and announces it as removed if `notify`.
// Waits for an input callback in progress: hold nothing that a callback takes. Device lock held.
void CloseMidiSource(MidiEndpointRegistry& registry, const MidiSourcePointer& source, bool notify)
    CORVALINT_REQUIRES(registry.deviceLock);

// winmm's input callback of every open source; `instance` is the MidiSourceEndpoint. It queues a
// buffer again as soon as its bytes are handed on.
void MidiInputCallback(MidiInHandle handle, std::uint32_t message, std::uintptr_t instance,
                       std::uintptr_t parameter1, std::uintptr_t parameter2);

// Length in bytes of the message that a status byte begins; 0 for a byte below 0x80.
std::int32_t ShortMessageLength(std::uint8_t status);

}  // namespace corvalint
