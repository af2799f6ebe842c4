#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "midi_input.h"
#include "text.h"

namespace corvalint::desk {

// Bytes of a short message with its status.
std::size_t ShortMessageLength(std::uint8_t status);

// The messages that a piece of MIDI consists of, as an input delivers them: short ones with their
// status, running or not, and SysEx whole, or as far as it goes. Data bytes that belong to no
// message are left out.
std::vector<InputItem> MessagesIn(const Bytes& midi);

}  // namespace corvalint::desk
