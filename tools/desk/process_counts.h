#pragma once

#include <cstddef>
#include <cstdint>

namespace corvalint::desk {

// What this process holds at the moment.
struct ProcessCounts {
  std::size_t handles = 0;  // all kernel handles
  std::size_t sockets = 0;  // those of them that are sockets
  std::size_t threads = 0;
  std::uint64_t workingSet = 0;     // bytes
  std::uint64_t heapBytes = 0;      // in use, of all heaps; 0 if they cannot be walked
  std::uint64_t deskHeapBytes = 0;  // those of them that are the desk's own
};

// Throws std::runtime_error if the system does not tell. Any thread.
ProcessCounts CountProcess();

}  // namespace corvalint::desk
