#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

#include "platform/thread.h"

namespace corvalint::fuzz {

// Threads that wait until a target runs them, on its own thread.
struct InlineThreads {
  struct Waiting {
    ThreadProcedure procedure;
    void* parameter;
    std::uint32_t id;
  };

  bool refuses = false;
  std::deque<Waiting> waiting;

  // Runs the body of one that waits, with its own id, to its end.
  void Run(std::size_t place);
  void RunAll();
  // Runs something on the thread that is none of them, while they wait inside their bodies.
  void RunOutside(const std::function<void()>& action);
  // Fails when a thread waits or a handle is open beyond `handlesInUse`.
  void Reset(int handlesInUse = 0);
};

// The one set of threads, put in force by the first call.
InlineThreads& TheInlineThreads();

}  // namespace corvalint::fuzz
