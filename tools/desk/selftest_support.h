#pragma once

#include <windows.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace corvalint::desk {

// What the parts of the self-test share.

// Notes what a callback brought, or what went wrong. Any thread.
void Hear(const std::string& what);
// What was noted since the last time, in order, as a JSON line.
std::string HeardJson();

// A function of a library that is loaded; throws std::runtime_error when it has none of that name.
template <typename Function>
Function Bind(const char* module, const char* name) {
  const FARPROC address = GetProcAddress(GetModuleHandleA(module), name);
  if (address == nullptr) throw std::runtime_error(std::string("missing ") + name);
  return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

}  // namespace corvalint::desk
