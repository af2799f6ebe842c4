#pragma once

#include <cstdint>

namespace corvalint::desk {

// Bytes that the desk has taken from the heap and not given back: its records of what it was told.
// The product and the host take theirs elsewhere. Any thread.
std::uint64_t OwnHeapBytes();

}  // namespace corvalint::desk
