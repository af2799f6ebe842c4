#include "clients/frame.h"

#include "clients/big_endian.h"

namespace corvalint {

void WriteFrameHeader(char* header, std::uint32_t size) {
  WriteBigEndian32(header, size);
  WriteBigEndian32(header + 4, kFrameKind);
  WriteBigEndian32(header + 8, kFrameTag);
}

}  // namespace corvalint
