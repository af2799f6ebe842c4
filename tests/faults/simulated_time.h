#pragma once

#include <cstdint>
#include <functional>

#include "platform/socket.h"
#include "platform/thread.h"

namespace corvalint::faults {

// Time that stands still while any of the library's threads can run, and jumps to the next
// sleeper's moment when none can. It replaces the clock and the locks, and knows of each thread
// whether it sleeps, waits for a socket or waits for a lock. The thread that calls UseSimulatedTime
// drives it: time passes only inside RunUntil, and inside what that thread itself sleeps or waits
// for.
void UseSimulatedTime();

// Runs on the driving thread whenever nothing else can run, before time moves; true when it did
// something that may have woken a thread.
void WhenIdle(std::function<bool()> action);

// Lets things happen until the condition holds, for at most that many simulated seconds. What the
// condition was in the end.
bool RunUntil(const std::function<bool()>& condition, int seconds);
// Lets that much time pass.
void RunFor(int seconds);

// The library's threads that have not ended.
int LivingThreads();

// For the tables that start threads and wait for sockets. MakeThread gives null when the system
// refuses; the wait is the system's.
ThreadHandle MakeThread(ThreadProcedure procedure, void* parameter, std::uint32_t* id);
SocketReadiness WaitForSocket(int socket, bool wantWritable, int waker);

}  // namespace corvalint::faults
