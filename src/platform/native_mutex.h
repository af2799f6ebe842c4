#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// Room for the system's re-entrant mutex (a CRITICAL_SECTION, a pthread_mutex_t).
struct NativeMutex {
  alignas(std::max_align_t) unsigned char storage[64];
};

// The system's re-entrant mutex. Only CriticalSection uses it. Any thread; `leave` only by the
// thread that has entered, `destroy` only while nobody has. Entering waits as long as it takes and
// cannot fail.
struct MutexApi {
  // False when the system could not give the spin count; the mutex is usable all the same.
  bool (*initialise)(NativeMutex& mutex, std::uint32_t spinCount);
  void (*destroy)(NativeMutex& mutex);
  void (*enter)(NativeMutex& mutex);
  void (*leave)(NativeMutex& mutex);

  static const MutexApi& System();
};

}  // namespace corvalint
