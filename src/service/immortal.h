#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace corvalint {

// A static object that is never destroyed, since threads and drivers use it until the process ends,
// and that needs no memory from the heap.
template <class Value>
class Immortal {
 public:
  template <class... Arguments>
  explicit Immortal(Arguments&&... arguments) {
    new (storage) Value(std::forward<Arguments>(arguments)...);
  }
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;

  Value& Get() { return *std::launder(reinterpret_cast<Value*>(storage)); }

 private:
  alignas(Value) std::byte storage[sizeof(Value)];
};

}  // namespace corvalint
