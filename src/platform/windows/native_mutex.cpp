#include "platform/native_mutex.h"

#include <new>

#include "platform/windows/system_headers.h"

namespace corvalint {
namespace {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(NativeMutex));

CRITICAL_SECTION* Native(NativeMutex& mutex) {
  return std::launder(reinterpret_cast<CRITICAL_SECTION*>(mutex.storage));
}

bool Initialise(NativeMutex& mutex, std::uint32_t spinCount) {
  auto* const section = new (mutex.storage) CRITICAL_SECTION;
  if (spinCount != 0 && InitializeCriticalSectionAndSpinCount(section, spinCount) != 0) return true;
  InitializeCriticalSection(section);
  return spinCount == 0;
}

void Destroy(NativeMutex& mutex) { DeleteCriticalSection(Native(mutex)); }

void Enter(NativeMutex& mutex) { EnterCriticalSection(Native(mutex)); }

void Leave(NativeMutex& mutex) { LeaveCriticalSection(Native(mutex)); }

}  // namespace

const MutexApi& MutexApi::System() {
  static constexpr MutexApi table{
      .initialise = Initialise, .destroy = Destroy, .enter = Enter, .leave = Leave};
  return table;
}

}  // namespace corvalint
