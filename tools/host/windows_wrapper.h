#pragma once

#include <stdexcept>

#include "host/wrapper.h"

namespace corvalint::host {

// The library cannot be used; the text says which file or which export is missing, in UTF-8.
struct NoLibrary : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Loads corvalint_wrapper.dll from the folder of this program and binds its twenty exports. Throws
// NoLibrary. Main thread only.
Wrapper LoadWrapper();

}  // namespace corvalint::host
