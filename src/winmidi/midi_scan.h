#pragma once

#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {

// Brings the registry's lists in line with winmm's devices: new devices are listed, off, with a new
// unique id; vanished ones are closed, taken off and announced to the devices as removed, also when
// they never were on; the library's own published ports are skipped. Nothing happens until the
// server's thread has made `midiLock`. The service thread, and once the server's.
void ScanMidiDevices(MidiEndpointRegistry& registry) CORVALINT_EXCLUDES(registry.deviceLock);

}  // namespace corvalint
