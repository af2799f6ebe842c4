#pragma once

#include <cstdint>

namespace corvalint::soak {

// What this process holds at the moment.
struct ProcessCounts {
  std::uint64_t threads = 0;
  std::uint64_t descriptors = 0;  // sockets included
  std::uint64_t sockets = 0;
  std::uint64_t heapBytes = 0;      // in use by allocations, of all arenas
  std::uint64_t residentBytes = 0;  // memory of the process that is in RAM
};

ProcessCounts CountProcess();

}  // namespace corvalint::soak
