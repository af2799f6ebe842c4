#pragma once

#include <atomic>

namespace corvalint {

// Each header of this room that reaches the outside offers one table of functions (an `Api`). The
// system's own table is `Api::System()`, defined once under windows/ and once under posix/; a test
// installs another one for as long as it runs.

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
