#pragma once

#include <cstdint>
#include <string_view>

namespace corvalint::fuzz {

// Compares what the console host reads from a text with what it should read. `kind` chooses the
// reader; the command line's arguments are separated by zero bytes.
void CheckHostText(std::uint8_t kind, std::string_view text);

}  // namespace corvalint::fuzz
