#pragma once

#include <atomic>

namespace corvalint {

// Each header of this room that reaches the outside offers one table of functions (an `Api`). The
// system's own table is `Api::System()`, defined once under windows/ and once under posix/; a test
// installs another one for as long as it runs.
//
// What a further system must supply: a folder beside windows/ with one definition of `System()` for
// each table here. Every entry must be set, serve any thread, throw nothing but std::bad_alloc and
// keep what its comment says; a device library that the system does not have gets the table of
// missing_libraries.h. src/CMakeLists.txt chooses the folder.

template <class Api>
inline std::atomic<const Api*> installedApi{nullptr};

// The table in force. Any thread.
template <class Api>
const Api& Use() {
  const Api* replacement = installedApi<Api>.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : Api::System();
}

// Installs `replacement`, which must outlive its use; null brings the system's own table back.
template <class Api>
void Install(const Api* replacement) {
  installedApi<Api>.store(replacement, std::memory_order_release);
}

}  // namespace corvalint
