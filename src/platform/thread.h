#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

using ThreadHandle = void*;
using ThreadProcedure = std::uint32_t (*)(void* parameter);

// Any thread.
struct ThreadApi {
  // Starts a thread with the default stack size; null when the system refuses. `id` receives the
  // thread's id before this returns. The handle is the caller's to close; the thread runs on
  // without it. No exception may leave `procedure`.
  ThreadHandle (*create)(ThreadProcedure procedure, void* parameter, std::uint32_t* id);
  // Ends another thread at once, where the system can (Windows); elsewhere it does nothing.
  void (*terminate)(ThreadHandle handle);
  // Gives the handle back, once; never null.
  void (*close)(ThreadHandle handle);
  // The calling thread's id. Never 0, and no two living threads share one.
  std::uint32_t (*currentId)();

  static const ThreadApi& System();
};

}  // namespace corvalint
