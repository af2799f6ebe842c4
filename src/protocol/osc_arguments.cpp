#include "protocol/osc_arguments.h"

namespace corvalint {

// Compared with the end before anything else: an argument of a message without type tags cannot
// even be asked for its type.
osc::ReceivedMessageArgument OscArguments::Take() {
  if (next == end) throw osc::MissingArgumentException();
  return *next++;
}

const char* OscArguments::String() { return Take().AsString(); }

std::int32_t OscArguments::Int32() {
  const osc::ReceivedMessageArgument argument = Take();
  if (argument.IsString()) return ParseDecimal(argument.AsStringUnchecked());
  return argument.AsInt32();
}

std::int64_t OscArguments::Int64() { return Take().AsInt64(); }

OscBlob OscArguments::Blob() {
  const void* data = nullptr;
  osc::osc_bundle_element_size_t size = 0;
  Take().AsBlob(data, size);
  return {static_cast<const std::uint8_t*>(data), static_cast<std::uint32_t>(size)};
}

std::int32_t ParseDecimal(const char* text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  std::uint32_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = value * 10u + static_cast<std::uint32_t>(*text - '0');
  }
  return static_cast<std::int32_t>(negative ? 0u - value : value);
}

}  // namespace corvalint
