#pragma once

#include <cstdint>

namespace corvalint::desk {

// What this process holds at the moment.
struct ProcessCounts {
  std::uint32_t handles = 0;  // all kernel handles
  std::uint32_t sockets = 0;  // those of them that are sockets
  std::uint32_t threads = 0;
  std::uint64_t workingSet = 0;  // bytes
};

ProcessCounts CountProcess();

}  // namespace corvalint::desk
