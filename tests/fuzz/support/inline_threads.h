#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

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
  // Fails when a thread waits or a handle is open.
  void Reset();
};

// The one set of threads, put in force by the first call.
InlineThreads& TheInlineThreads();

}  // namespace corvalint::fuzz
