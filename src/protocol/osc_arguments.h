#pragma once

#include <osc/OscReceivedElements.h>

#include <cstdint>

namespace corvalint {

// A blob argument; the bytes lie inside the packet.
struct OscBlob {
  const std::uint8_t* data;
  std::uint32_t size;
};

// Reads a message's arguments in order. Throws osc::MissingArgumentException past the last one,
// also when the message has no type tags at all, and osc::WrongArgumentTypeException for another
// type.
class OscArguments {
 public:
  // The message must outlive the reader.
  explicit OscArguments(const osc::ReceivedMessage& message)
      : next(message.ArgumentsBegin()), end(message.ArgumentsEnd()) {}

  const char* String();
  // An int32, or a string of decimal text that is read as `atoi` reads it.
  std::int32_t Int32();
  std::int64_t Int64();
  OscBlob Blob();

 private:
  osc::ReceivedMessageArgument Take();

  osc::ReceivedMessage::const_iterator next;
  const osc::ReceivedMessage::const_iterator end;
};

// Leading blanks, a sign, digits; 0 when there are none. Numbers beyond 32 bits keep their low 32
// bits, so that an id written as unsigned names the same endpoint.
std::int32_t ParseDecimal(const char* text);

}  // namespace corvalint
