#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "device/osc_codec.h"

// The frames of the device stream: three big-endian 32-bit words (payload length, 2, 2) and one
// OSC packet, with nothing between one frame and the next.
namespace corvalint::device {

inline constexpr std::size_t kFrameHeaderSize = 12;
inline constexpr std::uint32_t kLongestPayload = 131072;

struct FrameHeader {
  std::uint32_t length = 0;  // payload bytes
  std::uint32_t kind = 2;
  std::uint32_t tag = 2;
};

// Header words as given, whatever they claim, and then the payload.
Bytes EncodeFrame(const FrameHeader& header, const Bytes& payload);

// A well-formed frame around the payload.
Bytes EncodeFrame(const Bytes& payload);

// Several frames in one run of bytes, for sending at once.
class FrameBatch {
 public:
  // Appends a well-formed frame around the packet.
  void AddPacket(const Bytes& packet);
  // Appends a frame with "/midi".
  void AddMidi(std::string_view name, const EndpointId& id, std::int64_t time, const Bytes& midi);
  // Appends bytes as they are; they count as `frames` frames.
  void AddRaw(const Bytes& bytes, std::uint64_t frames);

  const Bytes& Data() const { return data; }
  std::uint64_t Frames() const { return frameCount; }

 private:
  Bytes data;
  std::uint64_t frameCount = 0;
};

// Cuts a received byte stream into frames and notices when the stream stops being one. For one
// thread at a time.
class FrameReader {
 public:
  struct Frame {
    std::uint64_t offset = 0;  // of its header in the stream
    FrameHeader header;
    Bytes bytes;  // header and payload
  };

  struct Broken {
    std::uint64_t offset = 0;  // of the header that cannot be one
    std::string reason;
  };

  // Takes the next bytes of the stream.
  void Feed(const std::uint8_t* data, std::size_t size);

  // The next complete frame, or nothing when more bytes are needed or the boundary is lost.
  std::optional<Frame> Next();

  // Why the boundary is lost: a length of 0 or above 131072, or a second or third word other than
  // 2. After that no byte of the stream can be read any more, so Next() gives nothing.
  const std::optional<Broken>& Broke() const { return broken; }

  // Bytes of a frame that has begun and is not complete.
  std::size_t Pending() const { return buffer.size() - position; }

  // The stream offset after the last byte fed before the boundary was lost.
  std::uint64_t Offset() const { return bufferOffset + buffer.size(); }

 private:
  Bytes buffer;
  std::size_t position = 0;        // of the next frame in `buffer`
  std::uint64_t bufferOffset = 0;  // of buffer[0] in the stream
  std::optional<Broken> broken;
};

}  // namespace corvalint::device
