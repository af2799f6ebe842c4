#pragma once

#include <cstdint>
#include <string>

#include "fuzz/support/input.h"

namespace corvalint::fuzz {

// What the messages of devices are made of, taken from the input: mostly values that other messages
// have too, or that lie at a limit, and now and then any at all.

// An endpoint's name.
std::string TakeName(Input& input);
// An endpoint's id, or a status.
std::int32_t TakeId(Input& input);
// A UDP number, which may have more than 16 bits.
std::int32_t TakeUdpPort(Input& input);
// The host of a loopback port.
std::string TakeHost(Input& input);
// The address of one of the messages that the library knows.
const char* AddressOf(std::uint8_t choice);

}  // namespace corvalint::fuzz
