#include "support/deferred_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

namespace corvalint::test {

namespace {

std::atomic<DeferredThreads*> current{nullptr};
// Not 0 while this thread runs a deferred body.
thread_local std::uint32_t borrowedId = 0;

void Remember(void* object) {
  static std::mutex mutex;
  static auto* const objects = new std::vector<void*>;
  const std::lock_guard hold(mutex);
  objects->push_back(object);
}

std::string NumberOf(ThreadHandle handle) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace

struct DeferredThreads::Table {
  static ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
    DeferredThreads& self = Current();
    Remember(parameter);
    if (self.making) self.making();
    if (self.refusing) {
      self.log.Add("create() = none");
      return nullptr;
    }
    const std::lock_guard hold(self.mutex);
    self.threads.push_back({procedure, parameter});
    const int number = static_cast<int>(self.threads.size());
    self.log.Add("create() = " + std::to_string(number));
    *id = IdOf(number);
    return reinterpret_cast<ThreadHandle>(static_cast<std::uintptr_t>(number));
  }

  static void Terminate(ThreadHandle handle) {
    Current().log.Add("terminate(" + NumberOf(handle) + ")");
    if (Current().ending) Current().ending();
  }

  static void Close(ThreadHandle handle) { Current().log.Add("close(" + NumberOf(handle) + ")"); }

  static std::uint32_t CurrentId() {
    return borrowedId != 0 ? borrowedId : ThreadApi::System().currentId();
  }
};

DeferredThreads::DeferredThreads(CallLog& callLog) : log(callLog) {
  static constexpr ThreadApi kApi{.create = Table::Create,
                                  .terminate = Table::Terminate,
                                  .close = Table::Close,
                                  .currentId = Table::CurrentId};
  EXPECT_EQ(current.exchange(this), nullptr) << "a second set of threads";
  Install<ThreadApi>(&kApi);
}

DeferredThreads::~DeferredThreads() {
  Install<ThreadApi>(nullptr);
  current = nullptr;
}

DeferredThreads& DeferredThreads::Current() { return *current.load(); }

int DeferredThreads::Made() const {
  const std::lock_guard hold(mutex);
  return static_cast<int>(threads.size());
}

ThreadProcedure DeferredThreads::ProcedureOf(int number) const {
  const std::lock_guard hold(mutex);
  return threads.at(static_cast<std::size_t>(number - 1)).procedure;
}

void* DeferredThreads::ParameterOf(int number) const {
  const std::lock_guard hold(mutex);
  return threads.at(static_cast<std::size_t>(number - 1)).parameter;
}

std::uint32_t DeferredThreads::Run(int number) const {
  const ThreadProcedure procedure = ProcedureOf(number);
  void* const parameter = ParameterOf(number);
  borrowedId = IdOf(number);
  const std::uint32_t result = procedure(parameter);
  borrowedId = 0;
  return result;
}

}  // namespace corvalint::test
