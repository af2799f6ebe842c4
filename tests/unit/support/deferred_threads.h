#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/thread.h"
#include "support/call_log.h"

namespace corvalint::test {

// Threads that are noted and do not run until a test lets them, installed for as long as it lives;
// one at a time. The first thread is number 1, and its id is 1000001. It notes:
//   create() = 1, create() = none, terminate(1), close(1)
// Objects that were made for a thread and are never destroyed are not leaks: they are remembered.
// Any thread.
class DeferredThreads {
 public:
  explicit DeferredThreads(CallLog& callLog);
  ~DeferredThreads();
  DeferredThreads(const DeferredThreads&) = delete;
  DeferredThreads& operator=(const DeferredThreads&) = delete;

  // Runs in every call for a thread, before it is answered; set before threads are made.
  void WhenMaking(std::function<void()> newAction) { making = std::move(newAction); }
  // Runs in every call that ends a thread.
  void WhenEnding(std::function<void()> newAction) { ending = std::move(newAction); }
  // No thread can be made from now on.
  void Refuse() { refusing = true; }

  int Made() const;
  ThreadProcedure ProcedureOf(int number) const;
  void* ParameterOf(int number) const;
  // Runs the body of that thread on the calling thread, which has the thread's id meanwhile. What
  // the procedure returned.
  std::uint32_t Run(int number) const;

  static std::uint32_t IdOf(int number) { return 1000000u + static_cast<std::uint32_t>(number); }

 private:
  struct Thread {
    ThreadProcedure procedure;
    void* parameter;
  };
  struct Table;
  static DeferredThreads& Current();

  CallLog& log;
  std::function<void()> making, ending;
  bool refusing = false;
  mutable std::mutex mutex;
  std::vector<Thread> threads;
};

}  // namespace corvalint::test
