#pragma once

#include "platform/seam.h"

namespace corvalint {

using LibraryHandle = void*;

// Dynamic libraries. Names and paths are in the ANSI code page, as the registry gives them. Any
// thread.
struct LibraryApi {
  // Adds a folder to the process's search for libraries, in place of an earlier one. False when the
  // system refuses.
  bool (*setDllDirectory)(const char* folder);
  // Loads a library by name or path; null when it cannot be loaded. It is never freed.
  LibraryHandle (*load)(const char* name);

  static const LibraryApi& System();
};

}  // namespace corvalint
