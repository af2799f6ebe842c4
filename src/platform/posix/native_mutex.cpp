#include "platform/native_mutex.h"

#include <pthread.h>

#include <new>

namespace corvalint {
namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(NativeMutex));

pthread_mutex_t* Native(NativeMutex& mutex) {
  return std::launder(reinterpret_cast<pthread_mutex_t*>(mutex.storage));
}

// There is no spin count to refuse here.
bool Initialise(NativeMutex& mutex, std::uint32_t) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int result = pthread_mutex_init(new (mutex.storage) pthread_mutex_t, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return result == 0;
}

void Destroy(NativeMutex& mutex) { pthread_mutex_destroy(Native(mutex)); }

void Enter(NativeMutex& mutex) { pthread_mutex_lock(Native(mutex)); }

void Leave(NativeMutex& mutex) { pthread_mutex_unlock(Native(mutex)); }

}  // namespace

const MutexApi& MutexApi::System() {
  static constexpr MutexApi table{
      .initialise = Initialise, .destroy = Destroy, .enter = Enter, .leave = Leave};
  return table;
}

}  // namespace corvalint
