#pragma once

#include <cstdint>

namespace corvalint::desk {

// What this process holds at the moment.
struct ProcessCounts {
  std::uint32_t handles = 0;  // all kernel handles
  std::uint32_t sockets = 0;  // those of them that are sockets
  std::uint32_t threads = 0;
  std::uint64_t workingSet = 0;     // bytes
  std::uint64_t heapBytes = 0;      // in use, of all heaps; 0 if they cannot be walked
  std::uint64_t deskHeapBytes = 0;  // those of them that are the desk's own
};

ProcessCounts CountProcess();

}  // namespace corvalint::desk
