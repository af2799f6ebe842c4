#pragma once

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace corvalint::desk {

// A thread that runs tasks one after another, as a driver calls its callbacks. The thread is made
// with the first task and lasts until Stop.
class Worker {
 public:
  Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker();

  // Queues a task. False after Stop: the task is dropped.
  bool Post(std::function<void()> task);

  // Drops what waits and returns when the running task is over. Called by a task of this worker it
  // cannot wait, and returns at once.
  void Stop();

  // Ends the worker without waiting. Tasks that wait still run, so that each can tell its end, and
  // find Stopping set. The worker must outlive them.
  void StopSoon();

  // Long tasks ask this between their steps.
  bool Stopping() const { return stopping; }

  bool IsCurrentThread();

 private:
  void Body();

  std::mutex lock;
  std::condition_variable changed;
  std::deque<std::function<void()>> tasks;
  std::thread thread;
  std::atomic<bool> stopping = false;
};

}  // namespace corvalint::desk
