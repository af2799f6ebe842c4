#pragma once

#include <cstddef>
#include <cstdint>

namespace corvalint {

inline constexpr std::size_t kFrameHeaderSize = 12;
inline constexpr std::uint32_t kMaximumPayload = 131072;
// Sent as the frame's second and third word; frames of another kind are dropped on receipt.
inline constexpr std::uint32_t kFrameKind = 2;
inline constexpr std::uint32_t kFrameTag = 2;

// The twelve bytes before a frame's payload of `size` bytes, all words big-endian:
//   uint32 length (1 to 131072) | uint32 2 | uint32 2
void WriteFrameHeader(char* header, std::uint32_t size);

// A whole frame that lies in memory ready to be sent: the header and, right behind it, the payload.
// The bytes belong to whoever made it.
struct Frame {
  const char* header = nullptr;
  std::uint32_t payloadSize = 0;

  const char* Payload() const { return header + kFrameHeaderSize; }
  std::size_t Size() const { return kFrameHeaderSize + payloadSize; }
};

}  // namespace corvalint
