#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "clients/frame.h"

namespace corvalint {

// Room for a packet that carries no more than a name or a few numbers.
inline constexpr std::size_t kSmallPacketBuffer = 4096;

// Room for one outgoing "/midi" packet and, before it, its frame's header. The thread that sends
// may be winmm's or the driver's, whose stack this library does not size, so only small packets
// live on it; large ones use a buffer of 131072 bytes from a small store, which is filled once and
// used again.
class PacketBuffer {
 public:
  // `expected` is the packet's exact size; one that exceeds the maximum gets the maximum, and the
  // OSC library refuses it.
  explicit PacketBuffer(std::size_t expected);
  ~PacketBuffer();
  PacketBuffer(const PacketBuffer&) = delete;
  PacketBuffer& operator=(const PacketBuffer&) = delete;

  // Where the packet is put together.
  char* Data() { return Header() + kFrameHeaderSize; }
  std::size_t Capacity() const { return large != nullptr ? kMaximumPayload : kSmallPacket; }

  // Makes a frame of the first `size` bytes of the packet. It lives as long as the buffer.
  Frame Framed(std::size_t size);

 private:
  static constexpr std::size_t kSmallPacket = 1024;

  char* Header() { return large != nullptr ? large.get() : small.data(); }

  std::array<char, kFrameHeaderSize + kSmallPacket> small;
  std::unique_ptr<char[]> large;
};

}  // namespace corvalint
