#pragma once

#include <cstddef>
#include <new>

namespace corvalint {

// A static object that is never destroyed, since threads and drivers use it until the process ends,
// and that needs no memory from the heap.
template <class Value>
class Immortal {
 public:
  Immortal() { new (storage) Value; }
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;

  Value& Get() { return *std::launder(reinterpret_cast<Value*>(storage)); }

 private:
  alignas(Value) std::byte storage[sizeof(Value)];
};

}  // namespace corvalint
