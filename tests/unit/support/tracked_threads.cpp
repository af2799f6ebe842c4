#include "support/tracked_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <utility>

namespace corvalint::test {

namespace {
std::atomic<TrackedThreads*> current{nullptr};
}  // namespace

struct TrackedThreads::Table {
  static ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
    TrackedThreads& self = Current();
    std::function<void()> action;
    {
      const std::lock_guard hold(self.mutex);
      action = self.whenMaking;
    }
    if (action) action();
    const std::lock_guard hold(self.mutex);
    if (self.refusals > 0) {
      --self.refusals;
      return nullptr;
    }
    ++self.made;
    void* const handle = reinterpret_cast<void*>(++self.lastHandle);
    self.handles.insert(handle);
    if (std::exchange(self.holdNext, false)) {
      *id = CurrentId();
      self.held = [procedure, parameter] { procedure(parameter); };
      return handle;
    }
    std::promise<std::uint32_t> ownId;
    auto itsId = ownId.get_future();
    self.threads.emplace_back([procedure, parameter, answer = std::move(ownId)]() mutable {
      answer.set_value(ThreadApi::System().currentId());
      procedure(parameter);
    });
    *id = itsId.get();
    return handle;
  }

  static void Terminate(ThreadHandle handle) {
    TrackedThreads& self = Current();
    const std::lock_guard hold(self.mutex);
    EXPECT_EQ(self.handles.count(handle), 1u) << "a closed handle is used";
    ++self.terminated;
  }

  static void Close(ThreadHandle handle) {
    TrackedThreads& self = Current();
    const std::lock_guard hold(self.mutex);
    EXPECT_EQ(self.handles.erase(handle), 1u) << "a handle is closed twice";
  }

  static std::uint32_t CurrentId() { return ThreadApi::System().currentId(); }

  static const ThreadApi& Get() {
    static constexpr ThreadApi table{
        .create = Create, .terminate = Terminate, .close = Close, .currentId = CurrentId};
    return table;
  }
};

TrackedThreads::TrackedThreads() {
  EXPECT_EQ(current.exchange(this), nullptr);
  Install<ThreadApi>(&Table::Get());
}

TrackedThreads::~TrackedThreads() {
  JoinAll();
  Install<ThreadApi>(nullptr);
  current = nullptr;
}

TrackedThreads& TrackedThreads::Current() { return *current.load(); }

void TrackedThreads::HoldNext() {
  const std::lock_guard hold(mutex);
  holdNext = true;
}

void TrackedThreads::WhenMaking(std::function<void()> action) {
  const std::lock_guard hold(mutex);
  whenMaking = std::move(action);
}

void TrackedThreads::RunHeld() {
  ASSERT_NE(held, nullptr) << "no thread was made";
  std::exchange(held, nullptr)();
}

void TrackedThreads::JoinAll() {
  for (;;) {
    std::vector<std::thread> joined;
    {
      const std::lock_guard hold(mutex);
      joined.swap(threads);
    }
    if (joined.empty()) return;
    for (std::thread& thread : joined) thread.join();
  }
}

int TrackedThreads::Made() const {
  const std::lock_guard hold(mutex);
  return made;
}

std::size_t TrackedThreads::OpenHandles() const {
  const std::lock_guard hold(mutex);
  return handles.size();
}

int TrackedThreads::Terminated() const {
  const std::lock_guard hold(mutex);
  return terminated;
}

}  // namespace corvalint::test
