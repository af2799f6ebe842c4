#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

// Counts what each thread takes from the heap. It replaces the program's operators, so one source
// file of a test program includes it and no other.
namespace corvalint::test {

// What the calling thread has taken from the heap so far.
inline thread_local int allocations = 0;

}  // namespace corvalint::test

// clang's ThreadSanitizer brings operators of its own and tells of each use.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CORVALINT_ALLOCATIONS_ARE_TOLD
#endif
#endif

#ifdef CORVALINT_ALLOCATIONS_ARE_TOLD

#include <sanitizer/allocator_interface.h>

namespace corvalint::test {

inline const int allocationsAreTold = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++allocations; }, [](const volatile void*) {});

}  // namespace corvalint::test

#else

namespace corvalint::test {

inline void* CountedAllocation(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

}  // namespace corvalint::test

void* operator new(std::size_t size) { return corvalint::test::CountedAllocation(size); }
void* operator new[](std::size_t size) { return corvalint::test::CountedAllocation(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++corvalint::test::allocations;
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t& none) noexcept {
  return operator new(size, none);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

#endif
