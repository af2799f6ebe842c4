#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvalint::windows {

// The kernel handles that this process has open at the moment, in no order. Throws
// std::runtime_error if the system does not tell. Any thread.
std::vector<std::uintptr_t> OpenHandles();

// The number of this process's threads. Throws std::runtime_error if they cannot be listed. Their
// list is itself a handle while it is read, so count handles first. Any thread.
std::size_t CountThreads();

}  // namespace corvalint::windows
