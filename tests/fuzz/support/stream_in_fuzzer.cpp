// What the stream target has in the fuzzer only: memory that is quick to get, and mutations of one
// frame's payload that leave the frames whole.
//
// A stream takes one room of 1 MiB each time it opens, and the sanitizer's allocator fetches blocks
// of that size from the system and gives them back. Here one such block is kept and used again,
// which makes the target several times faster; its edges, and all of it while it is free, stay
// forbidden.

#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>
#include <vector>

#include "fuzz/support/osc_model.h"
#include "fuzz/support/stream_input.h"

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

constexpr std::size_t kHeader = 12;

// Where the payloads begin, of all frames that are whole.
std::vector<std::size_t> Payloads(std::string_view input, std::size_t at) {
  std::vector<std::size_t> payloads;
  while (at + kHeader <= input.size()) {
    const auto length = static_cast<std::size_t>(corvalint::fuzz::OscNumber(input.substr(at, 4)));
    at += kHeader;
    if (length == 0 || length > input.size() - at) break;
    payloads.push_back(at);
    at += length;
  }
  return payloads;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

// Two of three mutations change the payload of a frame and set the frame's length to fit.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned int seed) {
  using corvalint::fuzz::Input;
  if (seed % 3 == 0 || size > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const corvalint::fuzz::StreamInput parts(Input(data, size));
  const auto begin = static_cast<std::size_t>(parts.connections[0].data() - input.data());
  const std::vector<std::size_t> payloads = Payloads(input, std::min(begin, size));
  if (payloads.empty()) return LLVMFuzzerMutate(data, size, maxSize);

  const std::size_t at = payloads[seed / 3 % payloads.size()];
  const auto length =
      static_cast<std::size_t>(corvalint::fuzz::OscNumber(input.substr(at - kHeader, 4)));
  std::vector<std::uint8_t> payload(data + at, data + at + length);
  const std::vector<std::uint8_t> after(data + at + length, data + size);
  payload.resize(maxSize - at - after.size());
  const std::size_t changed = LLVMFuzzerMutate(payload.data(), length, payload.size());
  const std::size_t padded = std::min((changed + 3) / 4 * 4, payload.size());
  std::fill(payload.begin() + static_cast<std::ptrdiff_t>(changed),
            payload.begin() + static_cast<std::ptrdiff_t>(padded), std::uint8_t{0});
  for (std::size_t i = 0; i < 4; ++i) {
    data[at - kHeader + i] = static_cast<std::uint8_t>(padded >> (24 - 8 * i));
  }
  std::copy_n(payload.begin(), padded, data + at);
  std::copy(after.begin(), after.end(), data + at + padded);
  return at + padded + after.size();
}

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
