#include "bench/watched_threads.h"

#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include "platform/thread.h"

namespace corvalint::bench {

namespace {

struct Order {
  ThreadProcedure procedure;
  void* parameter;
};

std::mutex threadsMutex;

std::vector<WatchedThread>& Threads() {
  static auto* const threads = new std::vector<WatchedThread>;
  return *threads;
}

std::uint32_t RunWatched(void* parameter) {
  Order order{};
  {
    const std::unique_ptr<Order> owned(static_cast<Order*>(parameter));
    order = *owned;
    const std::lock_guard hold(threadsMutex);
    Threads().push_back({gettid(), reinterpret_cast<std::uintptr_t>(&order)});
  }
  return order.procedure(order.parameter);
}

ThreadHandle Create(ThreadProcedure procedure, void* parameter, std::uint32_t* id) {
  auto order = std::make_unique<Order>(Order{procedure, parameter});
  const ThreadHandle handle = ThreadApi::System().create(RunWatched, order.get(), id);
  if (handle != nullptr) static_cast<void>(order.release());
  return handle;
}

void PinTo(int processor, pid_t thread) {
  if (sysconf(_SC_NPROCESSORS_ONLN) < 2) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  sched_setaffinity(thread, sizeof set, &set);
}

}  // namespace

void RunBesideTheMeasured(pid_t thread) { PinTo(0, thread); }
void RunAsMeasured(pid_t thread) { PinTo(1, thread); }

void WatchThreads() {
  static const ThreadApi kTable{.create = Create,
                                .terminate = ThreadApi::System().terminate,
                                .close = ThreadApi::System().close,
                                .currentId = ThreadApi::System().currentId};
  Install<ThreadApi>(&kTable);
}

std::vector<WatchedThread> WatchedThreads() {
  const std::lock_guard hold(threadsMutex);
  return Threads();
}

std::uint64_t SleepsOf(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  std::string word;
  while (status >> word) {
    std::uint64_t count = 0;
    if (word == "voluntary_ctxt_switches:" && status >> count) return count;
  }
  return 0;
}

std::uint64_t StackTouchedBy(const WatchedThread& thread) {
  std::ifstream maps("/proc/self/smaps");
  std::string line;
  bool inside = false;
  while (std::getline(maps, line)) {
    unsigned long begin = 0, end = 0, kilobytes = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx ", &begin, &end) == 2) {
      inside = begin <= thread.stack && thread.stack < end;
    } else if (inside && std::sscanf(line.c_str(), "Rss: %lu kB", &kilobytes) == 1) {
      return kilobytes * 1024;
    }
  }
  return 0;
}

}  // namespace corvalint::bench
