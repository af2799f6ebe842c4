#include "protocol/device_midi.h"

#include <cstring>

#include "clients/big_endian.h"
#include "protocol/packet_check.h"

namespace corvalint {

namespace {

constexpr char kAddressAndTags[] = "/midi\0\0\0,sihb\0\0";  // and the literal's own zero byte
constexpr std::size_t kTimeAt = 4;                          // behind the id
constexpr std::size_t kBlobSizeAt = 12;
constexpr std::size_t kBlobAt = 16;

std::int64_t ReadBigEndian64(const char* at) {
  return static_cast<std::int64_t>(std::uint64_t{ReadBigEndian32(at)} << 32 |
                                   ReadBigEndian32(at + 4));
}

}  // namespace

// Whole words follow the name, so a blob that fits has room for its padding too.
bool ReadDeviceMidi(const char* packet, std::size_t size, DeviceMidi& message) {
  constexpr std::size_t kHead = sizeof kAddressAndTags;
  if (size < kHead || size % 4 != 0 || std::memcmp(packet, kAddressAndTags, kHead) != 0) {
    return false;
  }
  const std::size_t nameSize = OscTextSize(packet + kHead, size - kHead);
  const std::size_t rest = size - kHead - nameSize;
  if (nameSize == 0 || rest < kBlobAt) return false;
  const char* const behindName = packet + kHead + nameSize;
  const std::uint32_t blobSize = ReadBigEndian32(behindName + kBlobSizeAt);
  if (blobSize > rest - kBlobAt) return false;
  message.name = packet + kHead;
  message.id = static_cast<std::int32_t>(ReadBigEndian32(behindName));
  message.deviceTime = ReadBigEndian64(behindName + kTimeAt);
  message.data = reinterpret_cast<const std::uint8_t*>(behindName + kBlobAt);
  message.size = blobSize;
  return true;
}

}  // namespace corvalint
