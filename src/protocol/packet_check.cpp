#include "protocol/packet_check.h"

#include <osc/OscReceivedElements.h>

#include <cstdint>

#include "clients/big_endian.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kLargestBlob = 0x7FFFFFFC;

// The bytes of a message that are not read yet.
struct Rest {
  const char* at;
  std::size_t size;

  void Skip(std::size_t count) {
    if (count > size) throw osc::MalformedMessageException("arguments exceed message size");
    at += count;
    size -= count;
  }

  void SkipText(const char* complaint) {
    const std::size_t text = OscTextSize(at, size);
    if (text == 0) throw osc::MalformedMessageException(complaint);
    Skip(text);
  }

  void SkipBlob() {
    const char* sizeField = at;
    Skip(4);
    const std::uint32_t blobSize = ReadBigEndian32(sizeField);
    if (blobSize > kLargestBlob) throw osc::MalformedMessageException("invalid blob size");
    Skip((std::size_t{blobSize} + 3) & ~std::size_t{3});
  }
};

void CheckArgument(char typeTag, Rest& arguments) {
  switch (typeTag) {
    case 'i':
    case 'f':
    case 'c':
    case 'r':
    case 'm':
      return arguments.Skip(4);
    case 'h':
    case 't':
    case 'd':
      return arguments.Skip(8);
    case 's':
    case 'S':
      return arguments.SkipText("unterminated string argument");
    case 'b':
      return arguments.SkipBlob();
    default:
      return;  // no data, or a tag that the OSC library refuses
  }
}

}  // namespace

void CheckMessage(const char* message, std::size_t size) {
  if (size == 0) return;
  Rest rest{message, size};
  rest.SkipText("unterminated address pattern");
  if (rest.size == 0 || *rest.at != ',') return;  // no type tags
  const char* typeTag = rest.at + 1;
  // What follows an empty list of tags is nobody's business.
  if (rest.size > 1 && *typeTag == '\0') return;
  rest.SkipText("type tags were not terminated before end of message");
  for (; *typeTag != '\0'; ++typeTag) CheckArgument(*typeTag, rest);
}

void CheckBundle(const char* bundle, std::size_t size) {
  constexpr std::size_t kIdentifierAndTimeTag = 16;
  std::size_t at = kIdentifierAndTimeTag;
  while (at < size) {
    const std::size_t left = size - at;
    if (left < 4 || ReadBigEndian32(bundle + at) > left - 4) {
      throw osc::MalformedBundleException("packet too short for bundle element");
    }
    at += 4 + ReadBigEndian32(bundle + at);
  }
}

}  // namespace corvalint
