#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "host/doctor.h"
#include "host/wrapper.h"

namespace corvalint::host {

// Opens every MIDI input of this desktop, the ports of apps among them, counts the messages that
// come in and closes them again. SysEx alone is not heard. Without winmm.dll there are no inputs.
std::vector<HeardInput> ListenToInputs(int seconds);

// The MIDI inputs by their numbers; none without winmm.dll.
std::vector<MidiInput> ListInputs();

// Opens one and counts, see System::openInput.
std::unique_ptr<InputEar> OpenInputEar(std::size_t number, const MidiInput& expected);

}  // namespace corvalint::host
