#pragma once

#include "platform/windows/system_headers.h"

namespace corvalint {

// The module of that name: the copy that is already loaded, wherever it came from, or else what the
// default search loads. Null when there is none. It is never freed.
inline HMODULE FindModule(const char* name) {
  const HMODULE loaded = GetModuleHandleA(name);
  return loaded != nullptr ? loaded : LoadLibraryA(name);
}

// Points `function` at an export of `module`; false, leaving it as it was, when there is none.
template <class Function>
bool Bind(HMODULE module, const char* name, Function*& function) {
  void* const address = reinterpret_cast<void*>(GetProcAddress(module, name));
  if (address == nullptr) return false;
  function = reinterpret_cast<Function*>(address);
  return true;
}

}  // namespace corvalint
