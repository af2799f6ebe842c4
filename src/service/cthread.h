#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread.h"

namespace corvalint {

// The base of every thread of the library: a handle, an id and a flag that its loops test.
class CThread {
 public:
  CThread() = default;
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  // The thread's body. An exception that leaves it is caught and logged by ThreadProc; the thread
  // then ends and everything else goes on.
  virtual std::uint32_t Run();
  // Asks the thread to end: clears `running`. Neither waits for it nor ends it.
  virtual void Stop();

  // Starts the thread unless `running` is set already. When the system refuses, `running` stays set
  // and no thread runs. Any thread; the object may be gone when this returns.
  void Start();

  bool Running() const { return running; }
  // Whether a thread was ever made for this object.
  bool HasThread() const { return threadId != 0; }

 protected:
  // Clears `running` and closes the handle; never waits. On another thread it ends the thread
  // first, where the system can. On the object's own thread it lets that thread return instead: a
  // thread that ends itself would leave its handle, its memory and its locks behind.
  ~CThread();

  // The last thing that a thread does with an object that others share: gives back its handle, so
  // that whoever destroys the object does not end a thread that is just returning.
  void LeaveThread();

  std::atomic<ThreadHandle> threadHandle{nullptr};
  std::atomic<std::uint32_t> threadId{0};
  std::atomic<bool> running{false};

 private:
  bool MakeThread();
};

// The procedure of every CThread; `parameter` is the object. Returns 0.
std::uint32_t ThreadProc(void* parameter);

}  // namespace corvalint
