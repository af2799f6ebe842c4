#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#endif
#endif

// A stream takes one room of 1 MiB each time it opens, and the sanitizer's allocator fetches blocks
// of that size from the system and gives them back. Here one such block is kept and used again,
// which makes the target several times faster; its edges, and all of it while it is free, stay
// forbidden. This replaces the program's operators, so one source file includes it and no other.
namespace corvalint::fuzz {

#ifdef ASAN_POISON_MEMORY_REGION
inline constexpr std::size_t kRoom = std::size_t{1} << 20;
inline constexpr std::size_t kEdge = 4096;

alignas(4096) inline char roomWithEdges[kEdge + kRoom + kEdge];
inline char* const room = roomWithEdges + kEdge;
inline bool roomPoisoned = false;
inline bool roomTaken = false;

inline bool TakeRoom(std::size_t size) {
  if (size != kRoom || roomTaken) return false;
  if (!roomPoisoned) ASAN_POISON_MEMORY_REGION(roomWithEdges, sizeof roomWithEdges);
  roomPoisoned = true;
  ASAN_UNPOISON_MEMORY_REGION(room, kRoom);
  return roomTaken = true;
}
inline bool ReturnRoom(void* memory) {
  if (memory != room) return false;
  ASAN_POISON_MEMORY_REGION(room, kRoom);
  roomTaken = false;
  return true;
}
#else
inline char* const room = nullptr;
inline bool TakeRoom(std::size_t) { return false; }
inline bool ReturnRoom(void*) { return false; }
#endif

inline void* Allocate(std::size_t size) {
  return TakeRoom(size) ? room : std::malloc(size == 0 ? 1 : size);
}
inline void Release(void* memory) {
  if (!ReturnRoom(memory)) std::free(memory);
}

}  // namespace corvalint::fuzz

void* operator new(std::size_t size) {
  if (void* const memory = corvalint::fuzz::Allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return corvalint::fuzz::Allocate(size);
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return corvalint::fuzz::Allocate(size);
}
void operator delete(void* memory) noexcept { corvalint::fuzz::Release(memory); }
void operator delete[](void* memory) noexcept { corvalint::fuzz::Release(memory); }
void operator delete(void* memory, std::size_t) noexcept { corvalint::fuzz::Release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { corvalint::fuzz::Release(memory); }
