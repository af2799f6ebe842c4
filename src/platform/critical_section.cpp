#include "platform/critical_section.h"

#include "platform/thread.h"

namespace corvalint {

CriticalSection::CriticalSection(std::uint32_t spinCount)
    : initialised(Use<MutexApi>().initialise(mutex, spinCount)) {}

CriticalSection::~CriticalSection() { Use<MutexApi>().destroy(mutex); }

void CriticalSection::Enter() {
  Use<MutexApi>().enter(mutex);
  // Only the owner ever reads its own id here, so relaxed order is enough.
  owner.store(Use<ThreadApi>().currentId(), std::memory_order_relaxed);
  ++depth;
}

void CriticalSection::Leave() {
  if (HoldsOfThisThread() == 0) {
    strayLeaves.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  if (--depth == 0) owner.store(0, std::memory_order_relaxed);
  Use<MutexApi>().leave(mutex);
}

std::uint32_t CriticalSection::HoldsOfThisThread() const {
  return owner.load(std::memory_order_relaxed) == Use<ThreadApi>().currentId() ? depth : 0;
}

}  // namespace corvalint
