#include "device/frame.h"

namespace corvalint::device {
namespace {

void AppendWord(Bytes& bytes, std::uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

std::uint32_t ReadWord(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

void AppendFrame(Bytes& bytes, const FrameHeader& header, const Bytes& payload) {
  AppendWord(bytes, header.length);
  AppendWord(bytes, header.kind);
  AppendWord(bytes, header.tag);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
}

}  // namespace

Bytes EncodeFrame(const FrameHeader& header, const Bytes& payload) {
  Bytes bytes;
  bytes.reserve(kFrameHeaderSize + payload.size());
  AppendFrame(bytes, header, payload);
  return bytes;
}

Bytes EncodeFrame(const Bytes& payload) {
  return EncodeFrame({static_cast<std::uint32_t>(payload.size()), 2, 2}, payload);
}

void FrameBatch::AddPacket(const Bytes& packet) {
  AppendFrame(data, {static_cast<std::uint32_t>(packet.size()), 2, 2}, packet);
  ++frameCount;
}

void FrameBatch::AddMidi(std::string_view name, const EndpointId& id, std::int64_t time,
                         const Bytes& midi) {
  AddPacket(EncodeMidi(name, id, time, midi));
}

void FrameBatch::AddRaw(const Bytes& bytes, std::uint64_t frames) {
  data.insert(data.end(), bytes.begin(), bytes.end());
  frameCount += frames;
}

void FrameReader::Feed(const std::uint8_t* data, std::size_t size) {
  if (broken) return;
  buffer.insert(buffer.end(), data, data + size);
}

std::optional<FrameReader::Frame> FrameReader::Next() {
  if (broken) return std::nullopt;
  const std::uint8_t* start = buffer.data() + position;
  const std::size_t available = Pending();
  const std::uint64_t offset = bufferOffset + position;
  FrameHeader header;
  if (available >= kFrameHeaderSize) {
    header = {ReadWord(start), ReadWord(start + 4), ReadWord(start + 8)};
    if (header.length == 0 || header.length > kLongestPayload || header.kind != 2 ||
        header.tag != 2) {
      broken = {offset, "not a frame header: " + std::to_string(header.length) + ", " +
                            std::to_string(header.kind) + ", " + std::to_string(header.tag)};
      return std::nullopt;
    }
  }
  if (available < kFrameHeaderSize || available - kFrameHeaderSize < header.length) {
    // What has been handed out goes once per batch of frames, not once per frame.
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(position));
    bufferOffset += position;
    position = 0;
    return std::nullopt;
  }
  const std::size_t size = kFrameHeaderSize + header.length;
  Frame frame{offset, header, Bytes(start, start + size)};
  position += size;
  return frame;
}

}  // namespace corvalint::device
