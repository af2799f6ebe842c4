#pragma once

#include <array>
#include <cstddef>
#include <memory>

namespace corvalint {

inline constexpr std::size_t kMaximumPacket = 131072;
inline constexpr std::size_t kAnnouncementBuffer = 4096;

// Room for one outgoing "/midi" packet. The thread that sends may be winmm's or the driver's, whose
// stack this library does not size, so only small packets live on it; large ones use a buffer of
// 131072 bytes from a small store, which is filled once and used again.
class PacketBuffer {
 public:
  // `expected` is the packet's exact size; one that exceeds the maximum gets the maximum, and the
  // OSC library refuses it.
  explicit PacketBuffer(std::size_t expected);
  ~PacketBuffer();
  PacketBuffer(const PacketBuffer&) = delete;
  PacketBuffer& operator=(const PacketBuffer&) = delete;

  char* Data() { return large != nullptr ? large.get() : small.data(); }
  std::size_t Capacity() const { return large != nullptr ? kMaximumPacket : small.size(); }

 private:
  alignas(8) std::array<char, 1024> small;
  std::unique_ptr<char[]> large;
};

}  // namespace corvalint
