#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace corvalint::bench {

// A thread that the library has started.
struct WatchedThread {
  pid_t id = 0;              // the system's
  std::uintptr_t stack = 0;  // an address in its first frame
};

// Remembers the library's threads from now on, for the rest of the process.
void WatchThreads();
// In the order in which they began to run: the service, the server, then the devices' clients.
std::vector<WatchedThread> WatchedThreads();

// The measured threads share one processor and what feeds them has another one, so that ours and
// bare meet the same. Does nothing on a machine with one processor. 0 is the calling thread.
void RunBesideTheMeasured(pid_t thread);
void RunAsMeasured(pid_t thread);

// How often the thread has gone to sleep so far.
std::uint64_t SleepsOf(pid_t thread);
// Bytes of the thread's stack that are in memory.
std::uint64_t StackTouchedBy(const WatchedThread& thread);

}  // namespace corvalint::bench
