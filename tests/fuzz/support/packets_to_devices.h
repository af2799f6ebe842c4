#pragma once

#include <string>
#include <string_view>

namespace corvalint::fuzz {

// Fails unless the packet is one that the library sends to devices: a whole message with a known
// address and the types that belong to it.
void CheckPacketToDevice(std::string_view packet);

// Fails unless the bytes are whole frames with such packets. A frame that is cut at the end is
// allowed when `mayBeCut`.
void CheckFramesToDevice(std::string_view bytes, bool mayBeCut);

}  // namespace corvalint::fuzz
