#include "fuzz/support/inline_threads.h"

#include <utility>

#include "fuzz/support/check.h"

namespace corvalint::fuzz {

namespace {

constexpr std::uint32_t kMainId = 1;

std::uint32_t currentId = kMainId;
std::uint32_t lastId = kMainId;
int openHandles = 0;

ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  InlineThreads& threads = TheInlineThreads();
  if (threads.refuses) return nullptr;
  *id = ++lastId;
  threads.waiting.push_back({procedure, parameter, *id});
  ++openHandles;
  return reinterpret_cast<ThreadHandle>(std::uintptr_t{*id});
}

const ThreadApi kThreads{.create = Create,
                         .terminate = [](ThreadHandle) { Fail("a thread was ended by force"); },
                         .close = [](ThreadHandle) { --openHandles; },
                         .currentId = [] { return currentId; }};

}  // namespace

void InlineThreads::Run(std::size_t place) {
  const Waiting thread = waiting[place];
  waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(place));
  const std::uint32_t caller = std::exchange(currentId, thread.id);
  thread.procedure(thread.parameter);
  currentId = caller;
}

void InlineThreads::RunAll() {
  while (!waiting.empty()) Run(0);
}

void InlineThreads::RunOutside(const std::function<void()>& action) {
  const std::uint32_t caller = std::exchange(currentId, kMainId);
  action();
  currentId = caller;
}

void InlineThreads::Reset(int handlesInUse) {
  Check(waiting.empty(), "a thread that never ran");
  Check(openHandles == handlesInUse, "a thread's handle that nobody closed");
  refuses = false;
  lastId = kMainId;
}

InlineThreads& TheInlineThreads() {
  static InlineThreads* const threads = [] {
    Install<ThreadApi>(&kThreads);
    return new InlineThreads;
  }();
  return *threads;
}

}  // namespace corvalint::fuzz
