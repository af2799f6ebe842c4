#include "platform/thread.h"

#include <pthread.h>

#include <atomic>
#include <memory>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define CORVALINT_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CORVALINT_SANITIZED 1
#endif

namespace corvalint {
namespace {

// The stack that a thread has on Windows, so that a native run meets the same limit. A sanitizer's
// frames are several times larger.
#ifdef CORVALINT_SANITIZED
constexpr std::size_t kStackSize = std::size_t{8} << 20;
#else
constexpr std::size_t kStackSize = std::size_t{1} << 20;
#endif

// What a handle points at. Nothing can be done with a detached thread: the object only makes a
// handle that is never closed visible as a leak.
struct Handle {
  std::uint32_t id;
};

struct Start {
  ThreadProcedure procedure;
  void* parameter;
  std::uint32_t id;
};

// Ids are counted, not the system's: the creator then knows the id before the thread runs.
std::atomic<std::uint32_t> lastId{0};
thread_local std::uint32_t idOfThisThread = 0;

std::uint32_t NextId() { return lastId.fetch_add(1, std::memory_order_relaxed) + 1; }

void* Run(void* argument) {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
  idOfThisThread = start->id;
  start->procedure(start->parameter);
  return nullptr;
}

bool StartDetached(Start* start) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, kStackSize);
  pthread_t thread;
  const int result = pthread_create(&thread, &attributes, Run, start);
  pthread_attr_destroy(&attributes);
  return result == 0;
}

ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  const std::uint32_t newId = NextId();
  std::unique_ptr<Handle> handle(new (std::nothrow) Handle{newId});
  std::unique_ptr<Start> start(new (std::nothrow) Start{procedure, parameter, newId});
  if (handle == nullptr || start == nullptr) return nullptr;
  // The new thread may look at the caller's variable, so the id is there before it runs.
  if (id != nullptr) *id = newId;
  if (!StartDetached(start.get())) return nullptr;
  static_cast<void>(start.release());  // the thread frees it
  return handle.release();
}

void Terminate(ThreadHandle) {}

void Close(ThreadHandle handle) { delete static_cast<Handle*>(handle); }

std::uint32_t CurrentId() {
  if (idOfThisThread == 0) idOfThisThread = NextId();
  return idOfThisThread;
}

}  // namespace

const ThreadApi& ThreadApi::System() {
  static constexpr ThreadApi table{
      .create = Create, .terminate = Terminate, .close = Close, .currentId = CurrentId};
  return table;
}

}  // namespace corvalint
