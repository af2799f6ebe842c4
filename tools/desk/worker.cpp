#include "worker.h"

#include <utility>

namespace corvalint::desk {

Worker::~Worker() { Stop(); }

bool Worker::Post(std::function<void()> task) {
  const std::lock_guard hold(lock);
  if (stopping) return false;
  tasks.push_back(std::move(task));
  if (!thread.joinable()) thread = std::thread([this] { Body(); });
  changed.notify_one();
  return true;
}

void Worker::Stop() {
  std::thread ended;
  {
    const std::lock_guard hold(lock);
    stopping = true;
    tasks.clear();
    changed.notify_all();
    ended.swap(thread);
  }
  if (!ended.joinable()) return;
  if (ended.get_id() == std::this_thread::get_id()) {
    ended.detach();
  } else {
    ended.join();
  }
}

void Worker::StopSoon() {
  const std::lock_guard hold(lock);
  stopping = true;
  changed.notify_all();
  if (thread.joinable()) thread.detach();
}

bool Worker::IsCurrentThread() {
  const std::lock_guard hold(lock);
  return thread.get_id() == std::this_thread::get_id();
}

void Worker::Body() {
  for (;;) {
    std::function<void()> task;
    {
      std::unique_lock hold(lock);
      changed.wait(hold, [this] { return stopping || !tasks.empty(); });
      if (tasks.empty()) return;
      task = std::move(tasks.front());
      tasks.pop_front();
    }
    task();
  }
}

}  // namespace corvalint::desk
