#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

using RegistryKey = void*;

// The machine-wide part of the Windows registry, in the view that the process gets by default.
// Elsewhere no key exists.
struct RegistryApi {
  // Opens a key below the local machine's root for reading; false when it is not there.
  bool (*open)(const char* path, RegistryKey* key);
  // Reads a value's bytes into `buffer`; `size` holds the room on entry and the bytes read on
  // return. The text need not end in a zero byte. `type` is in and out, 1 is a text.
  bool (*read)(RegistryKey key, const char* name, void* buffer, std::uint32_t* size,
               std::uint32_t* type);
  // Closes the key and forgets it; a second close of the same variable does nothing to the system.
  void (*close)(RegistryKey* key);

  static const RegistryApi& System();
};

}  // namespace corvalint
