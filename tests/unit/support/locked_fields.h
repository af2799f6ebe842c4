#pragma once

#include <mutex>
#include <type_traits>
#include <utility>

namespace corvalint::test {

// Fields of a class that any thread may set and ask for, one lock for all of them.
class LockedFields {
 protected:
  LockedFields() = default;
  ~LockedFields() = default;

  template <class T>
  void Set(T& field, std::type_identity_t<T> value) {
    const std::lock_guard hold(mutex);
    field = std::move(value);
  }

  // A copy, so that an action can be run with no lock held.
  template <class T>
  T Get(const T& field) const {
    const std::lock_guard hold(mutex);
    return field;
  }

  // The next answer of those that were asked for, if there is one. Under the lock.
  template <class Queue>
  static bool TakeFront(Queue& queue, typename Queue::value_type& value) {
    if (queue.empty()) return false;
    value = queue.front();
    queue.pop_front();
    return true;
  }

  mutable std::mutex mutex;
};

}  // namespace corvalint::test
