#include "clients/packet_buffer.h"

#include <utility>

#include "platform/critical_section.h"
#include "service/immortal.h"

namespace corvalint {

namespace {

// Large buffers that nobody uses at the moment; at most as many as threads that send at once.
struct Store {
  CriticalSection lock;
  std::array<std::unique_ptr<char[]>, 8> spare CORVALINT_GUARDED_BY(lock);
};

Store& TheStore() {
  static Immortal<Store> store;
  return store.Get();
}

std::unique_ptr<char[]> TakeLarge() {
  {
    Store& store = TheStore();
    CriticalSectionScope hold(store.lock);
    for (auto& buffer : store.spare) {
      if (buffer != nullptr) return std::move(buffer);
    }
  }
  return std::make_unique_for_overwrite<char[]>(kFrameHeaderSize + kMaximumPayload);
}

// Frees the buffer when the store is full.
void GiveBack(std::unique_ptr<char[]> used) {
  Store& store = TheStore();
  CriticalSectionScope hold(store.lock);
  for (auto& buffer : store.spare) {
    if (buffer == nullptr) {
      buffer = std::move(used);
      return;
    }
  }
}

}  // namespace

PacketBuffer::PacketBuffer(std::size_t expected) {
  if (expected > kSmallPacket) large = TakeLarge();
}

Frame PacketBuffer::Framed(std::size_t size) {
  const auto payloadSize = static_cast<std::uint32_t>(size);
  WriteFrameHeader(Header(), payloadSize);
  return {Header(), payloadSize};
}

PacketBuffer::~PacketBuffer() {
  if (large != nullptr) GiveBack(std::move(large));
}

}  // namespace corvalint
