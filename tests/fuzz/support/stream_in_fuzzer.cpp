// What the stream target has in the fuzzer only.
//
// A stream takes one room of 1 MiB each time it opens, and the sanitizer's allocator fetches blocks
// of that size from the system and gives them back. Here one such block is kept and used again,
// which makes the target several times faster; its edges, and all of it while it is free, stay
// forbidden.

#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kRoom = std::size_t{1} << 20;
constexpr std::size_t kEdge = 4096;

alignas(4096) char roomWithEdges[kEdge + kRoom + kEdge];
char* const room = roomWithEdges + kEdge;
bool roomPoisoned = false;
bool roomTaken = false;

bool TakeRoom(std::size_t size) {
  if (size != kRoom || roomTaken) return false;
  if (!roomPoisoned) ASAN_POISON_MEMORY_REGION(roomWithEdges, sizeof roomWithEdges);
  roomPoisoned = true;
  ASAN_UNPOISON_MEMORY_REGION(room, kRoom);
  return roomTaken = true;
}

bool ReturnRoom(void* memory) {
  if (memory != room) return false;
  ASAN_POISON_MEMORY_REGION(room, kRoom);
  roomTaken = false;
  return true;
}

void* Allocate(std::size_t size) {
  return TakeRoom(size) ? room : std::malloc(size == 0 ? 1 : size);
}

void Release(void* memory) {
  if (!ReturnRoom(memory)) std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* const memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete[](void* memory) noexcept { Release(memory); }
void operator delete(void* memory, std::size_t) noexcept { Release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Release(memory); }
