#pragma once

#include <cstdint>
#include <string>

namespace corvalint::host {

// "1 device", "2 devices": a number and what it counts, in the plural unless it is one.
inline std::string Counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace corvalint::host
