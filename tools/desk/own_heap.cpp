#include "own_heap.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace corvalint::desk {

namespace {

std::atomic<std::uint64_t> bytesTaken{0};

void* Take(std::size_t size) noexcept {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) bytesTaken += _msize(memory);
  return memory;
}

void* TakeOrThrow(std::size_t size) {
  if (void* memory = Take(size)) return memory;
  throw std::bad_alloc();
}

void GiveBack(void* memory) noexcept {
  if (memory == nullptr) return;
  bytesTaken -= _msize(memory);
  std::free(memory);
}

}  // namespace

std::uint64_t OwnHeapBytes() { return bytesTaken; }

}  // namespace corvalint::desk

// The operators of this library alone: the others in the process are linked to their own.
void* operator new(std::size_t size) { return corvalint::desk::TakeOrThrow(size); }
void* operator new[](std::size_t size) { return corvalint::desk::TakeOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return corvalint::desk::Take(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return corvalint::desk::Take(size);
}
void operator delete(void* memory) noexcept { corvalint::desk::GiveBack(memory); }
void operator delete[](void* memory) noexcept { corvalint::desk::GiveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { corvalint::desk::GiveBack(memory); }
void operator delete[](void* memory, std::size_t) noexcept { corvalint::desk::GiveBack(memory); }
