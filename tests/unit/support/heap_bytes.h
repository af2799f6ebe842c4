#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdint>

// The sanitizers bring heaps of their own, which tell their size by this function.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CORVALINT_HEAP_OF_A_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define CORVALINT_HEAP_OF_A_SANITIZER
#endif
#endif

#ifdef CORVALINT_HEAP_OF_A_SANITIZER
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace corvalint::test {

// How many bytes of the heap this process uses now.
inline std::int64_t HeapBytes() {
#ifdef CORVALINT_HEAP_OF_A_SANITIZER
  return static_cast<std::int64_t>(__sanitizer_get_current_allocated_bytes());
#else
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
#endif
}

}  // namespace corvalint::test
