#pragma once

#include <cstdio>
#include <string>

#include "platform/seam.h"

namespace corvalint {

// The process that the library is loaded into. Any thread.
struct ProcessApi {
  // Full path of the host's executable, UTF-8, folders separated by backslashes on every system.
  // Empty when the system does not say.
  std::string (*executablePath)();
  // Opens a file without translating line ends, not inheritable by child processes. `path` is UTF-8
  // with backslashes, as `executablePath` gives them; `mode` is that of `fopen` without a "b". Null
  // on failure. The caller closes it with `fclose`.
  std::FILE* (*openFile)(const char* path, const char* mode);
  // Keeps this library loaded until the process ends: its threads and callbacks run inside it. A
  // system that refuses is not told apart.
  void (*pinModule)();
  // Asks for timers of one millisecond, where the system's default is coarser; in vain where the
  // system refuses.
  void (*sharpenTimers)();
  // The bytes that an ANSI call gives for a text of 16-bit units that are all below 256; `latin1`
  // holds one byte a unit. Empty when the system does not say.
  std::string (*ansiFromLatin1)(const std::string& latin1);

  static const ProcessApi& System();
};

}  // namespace corvalint
