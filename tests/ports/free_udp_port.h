#pragma once

#include <cstdint>

namespace corvalint::test {

// A UDP number of 127.0.0.1 that no socket has now, that the system gives nobody by itself, and
// that no other test program of this machine is given while this one runs: many tests keep a number
// whose socket comes and goes. Another number with each of 1,000 calls.
// The first call keeps a descriptor open until the program ends. For any thread. Throws
// std::runtime_error when the numbers are used up.
std::uint16_t FreeUdpPort();

}  // namespace corvalint::test
