#pragma once

#include <cstdint>

#include "harness/temp_folder.h"

namespace corvalint::soak {

// An empty folder in which the host's executable is said to lie, and so the library's log;
// installed for as long as it lives, and removed with it. Throws std::runtime_error when there can
// be none. One at a time.
class TemporaryHostFolder {
 public:
  TemporaryHostFolder();
  ~TemporaryHostFolder();
  TemporaryHostFolder(const TemporaryHostFolder&) = delete;
  TemporaryHostFolder& operator=(const TemporaryHostFolder&) = delete;

  // Bytes of the log at the moment.
  std::uint64_t LogSize() const;

 private:
  const harness::TempFolder folder;
};

}  // namespace corvalint::soak
