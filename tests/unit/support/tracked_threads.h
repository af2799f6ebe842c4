#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "platform/thread.h"

namespace corvalint::test {

// Real threads for the library, of which a test knows when they have ended; installed for as long
// as it lives. Joins every thread at the end of its life: each must have been stopped by then.
class TrackedThreads {
 public:
  TrackedThreads();
  ~TrackedThreads();
  TrackedThreads(const TrackedThreads&) = delete;
  TrackedThreads& operator=(const TrackedThreads&) = delete;

  // The next thread cannot be made.
  void RefuseNext() { refusals = 1; }
  // The next thread is made, and runs on the thread that calls RunHeld instead of one of its own.
  void HoldNext();
  void RunHeld();
  // Runs before each thread is made, on the thread that makes it.
  void WhenMaking(std::function<void()> action);
  // Waits until every thread made so far has ended.
  void JoinAll();

  int Made() const;
  // Handles that nobody has closed.
  std::size_t OpenHandles() const;
  int Terminated() const;

 private:
  struct Table;
  static TrackedThreads& Current();

  mutable std::mutex mutex;
  int refusals = 0;
  bool holdNext = false;
  std::function<void()> held;
  std::function<void()> whenMaking;
  int made = 0;
  int terminated = 0;
  std::set<void*> handles;
  std::uintptr_t lastHandle = 0;
  std::vector<std::thread> threads;
};

}  // namespace corvalint::test
