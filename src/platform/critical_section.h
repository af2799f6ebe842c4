#pragma once

#include <atomic>
#include <cstdint>

#include "platform/native_mutex.h"
#include "platform/thread_annotations.h"

namespace corvalint {

// A re-entrant lock that knows its owner. It counts holds by itself, so that a caller can restore
// them (HoldScope), and ignores a leave by a thread that does not own it: the system's own lock
// would lose its mutual exclusion there.
class CORVALINT_CAPABILITY("mutex") CriticalSection {
 public:
  explicit CriticalSection(std::uint32_t spinCount = 0);
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Enter() CORVALINT_ACQUIRE();
  void Leave() CORVALINT_RELEASE();

  // How often the calling thread has entered without leaving; 0 when it does not own the lock.
  std::uint32_t HoldsOfThisThread() const;
  // How many leaves by threads that did not own the lock were ignored so far.
  std::uint64_t StrayLeaves() const { return strayLeaves.load(std::memory_order_relaxed); }
  // False when the system refused the spin count; the lock works all the same.
  bool Initialised() const { return initialised; }

 private:
  NativeMutex mutex;
  const bool initialised;
  std::atomic<std::uint32_t> owner{0};  // thread id, 0 while free
  std::uint32_t depth = 0;              // touched by the owner only
  std::atomic<std::uint64_t> strayLeaves{0};
};

// Holds a lock for a block.
class CORVALINT_SCOPED_CAPABILITY CriticalSectionScope {
 public:
  explicit CriticalSectionScope(CriticalSection& section) CORVALINT_ACQUIRE(section)
      : lock(section) {
    lock.Enter();
  }
  ~CriticalSectionScope() CORVALINT_RELEASE() { lock.Leave(); }
  CriticalSectionScope(const CriticalSectionScope&) = delete;
  CriticalSectionScope& operator=(const CriticalSectionScope&) = delete;

 private:
  CriticalSection& lock;
};

// Gives the calling thread back the number of holds that it had when the scope began, whatever an
// operation inside left behind or gave away. Anything read under the lock inside is stale after it.
class HoldScope {
 public:
  explicit HoldScope(CriticalSection& section)
      : lock(section), holds(section.HoldsOfThisThread()) {}
  ~HoldScope() { Restore(); }
  HoldScope(const HoldScope&) = delete;
  HoldScope& operator=(const HoldScope&) = delete;

 private:
  void Restore() CORVALINT_UNCHECKED_LOCKING {
    while (lock.HoldsOfThisThread() > holds) lock.Leave();
    while (lock.HoldsOfThisThread() < holds) lock.Enter();
  }

  CriticalSection& lock;
  const std::uint32_t holds;
};

}  // namespace corvalint
