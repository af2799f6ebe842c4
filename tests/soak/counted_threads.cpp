#include "soak/counted_threads.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <set>

#include "platform/thread.h"
#include "soak/complaints.h"

namespace corvalint::soak {

namespace {

struct Order {
  ThreadProcedure procedure;
  void* parameter;
};

// Leaked, so that a thread that outlives the counting finds it still.
struct State {
  std::mutex mutex;
  std::set<ThreadHandle> handles;
  std::uint64_t made = 0;
  void* firstParameter = nullptr;  // the service, which nobody destroys, stays reachable
  std::atomic<std::size_t> living{0};
};

State& TheState() {
  static auto* const state = new State;
  return *state;
}

std::uint32_t RunCounted(void* parameter) {
  const std::unique_ptr<Order> order(static_cast<Order*>(parameter));
  const std::uint32_t result = order->procedure(order->parameter);
  --TheState().living;
  return result;
}

ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  State& state = TheState();
  auto order = std::make_unique<Order>(Order{procedure, parameter});
  ++state.living;
  // Held over the making: the new thread may close its own handle at once.
  const std::lock_guard hold(state.mutex);
  const ThreadHandle handle = ThreadApi::System().create(RunCounted, order.get(), id);
  if (handle == nullptr) {
    --state.living;
    return nullptr;
  }
  static_cast<void>(order.release());
  if (state.made++ == 0) state.firstParameter = parameter;
  state.handles.insert(handle);
  return handle;
}

void Terminate(ThreadHandle handle) {
  Complain("a thread was ended by another one");
  ThreadApi::System().terminate(handle);
}

void Close(ThreadHandle handle) {
  State& state = TheState();
  {
    const std::lock_guard hold(state.mutex);
    if (state.handles.erase(handle) == 0) return Complain("a thread's handle was closed twice");
  }
  ThreadApi::System().close(handle);
}

}  // namespace

CountedThreads::CountedThreads() {
  static const ThreadApi kTable{.create = Create,
                                .terminate = Terminate,
                                .close = Close,
                                .currentId = ThreadApi::System().currentId};
  Install<ThreadApi>(&kTable);
}

CountedThreads::~CountedThreads() { Install<ThreadApi>(nullptr); }

std::uint64_t CountedThreads::Made() const {
  const std::lock_guard hold(TheState().mutex);
  return TheState().made;
}

std::size_t CountedThreads::Living() const { return TheState().living; }

std::size_t CountedThreads::OpenHandles() const {
  const std::lock_guard hold(TheState().mutex);
  return TheState().handles.size();
}

}  // namespace corvalint::soak
