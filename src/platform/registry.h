#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

using RegistryKey = void*;

// The machine-wide part of the Windows registry, in the view that the process gets by default.
// Elsewhere no key exists. Any thread.
struct RegistryApi {
  // Opens a key below the local machine's root for reading; the caller closes it. False when it is
  // not there or may not be read.
  bool (*open)(const char* path, RegistryKey* key);
  // Reads a value's bytes into `buffer`; `size` holds the room on entry and the bytes read on
  // return. The text need not end in a zero byte. `type` is in and out, 1 is a text. False when
  // there is no such value or it is longer than the room.
  bool (*read)(RegistryKey key, const char* name, void* buffer, std::uint32_t* size,
               std::uint32_t* type);
  // Closes the key and forgets it; a second close of the same variable does nothing to the system.
  void (*close)(RegistryKey* key);

  static const RegistryApi& System();
};

}  // namespace corvalint
