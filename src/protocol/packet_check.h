#pragma once

#include <cstddef>

namespace corvalint {

// Checks that every string, number and blob that an OSC message claims lies inside its `size`
// bytes, so that the OSC library decodes nothing else. Throws osc::MalformedMessageException:
// "invalid blob size" for a blob of more than 0x7FFFFFFC bytes, "arguments exceed message size" and
// its fellows for the rest. What is wrong in other ways is left to the OSC library to refuse.
void CheckMessage(const char* message, std::size_t size);

}  // namespace corvalint
