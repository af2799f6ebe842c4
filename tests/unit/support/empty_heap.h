#pragma once

#include <cstdlib>
#include <new>

// Lets the heap be empty for a thread. It replaces the program's operators, so one source file of a
// test program includes it and no other.
namespace corvalint::test {

// As long as it is set, whatever the calling thread wants from the heap is refused.
inline thread_local bool heapIsEmpty = false;

}  // namespace corvalint::test

// clang's ThreadSanitizer brings operators of its own, which refuse nothing.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CORVALINT_HEAP_IS_NEVER_EMPTY
#endif
#endif

#ifdef CORVALINT_HEAP_IS_NEVER_EMPTY

namespace corvalint::test {
inline constexpr bool kHeapCanBeEmpty = false;
}  // namespace corvalint::test

#else

namespace corvalint::test {
inline constexpr bool kHeapCanBeEmpty = true;
}  // namespace corvalint::test

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return corvalint::test::heapIsEmpty ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size, const std::nothrow_t& none) noexcept {
  return operator new(size, none);
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

#endif
