#pragma once

#include <cstdint>

// Before a function that the stand-ins export.
#define DESK_EXPORT extern "C" __declspec(dllexport)

namespace corvalint::desk {

// A pointer as the log of calls has it.
inline std::uint64_t Number(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

}  // namespace corvalint::desk
