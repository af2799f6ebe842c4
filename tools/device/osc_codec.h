#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// OSC packets as the companion app writes and reads them. Everything here is a value or a pure
// function and may be used on any thread.
namespace corvalint::device {

using Bytes = std::vector<std::uint8_t>;

// The argument types of type tags i, h, f, d, s, b and T/F, in that order.
using OscArgument =
    std::variant<std::int32_t, std::int64_t, float, double, std::string, Bytes, bool>;

// An endpoint id on the wire: a number (tag i), or its decimal text (tag s), which the other side
// has to accept as well.
using EndpointId = std::variant<std::int32_t, std::string>;

// One decoded message.
struct OscMessage {
  std::string address;
  std::string typeTags;  // without the leading comma, e.g. "sihb"
  std::vector<OscArgument> arguments;

  // The argument at `index` (from 0). Throws std::out_of_range when there is none and
  // std::bad_variant_access when it is of another type.
  template <class T>
  const T& Argument(std::size_t index) const {
    return std::get<T>(arguments.at(index));
  }

  friend bool operator==(const OscMessage&, const OscMessage&) = default;
};

// The content of a "/midi" message.
struct MidiMessage {
  std::string name;
  std::int32_t id = 0;
  std::int64_t time = 0;  // nanoseconds
  Bytes data;

  friend bool operator==(const MidiMessage&, const MidiMessage&) = default;
};

// The message as MIDI, or nothing when it is not a "/midi" with exactly the tags "sihb".
std::optional<MidiMessage> AsMidi(const OscMessage& message);

// "/midi NAME 7 123 [90 3c 64]": one line for a person. Blobs are cut after 16 bytes, and
// control characters of a text are written as \xNN.
std::string Describe(const OscMessage& message);

// All messages of a packet in order, those of (nested) bundles included.
// Throws std::runtime_error, with the reason, when the packet is not well formed, uses a type tag
// without a place in OscArgument, or nests bundles deeper than 64.
std::vector<OscMessage> DecodePacket(const std::uint8_t* data, std::size_t size);
std::vector<OscMessage> DecodePacket(const Bytes& packet);

// The packet of any message; its type tags are made from the arguments, not from `typeTags`.
// Strings end at their first NUL.
Bytes EncodeMessage(const OscMessage& message);

// The packet of a bundle of already encoded packets, with time tag 1 (at once).
Bytes EncodeBundle(const std::vector<Bytes>& elements);

// "/midi" (name, id, time in nanoseconds, MIDI bytes).
Bytes EncodeMidi(std::string_view name, const EndpointId& id, std::int64_t time, const Bytes& midi);

// An announcement: `address` is "/add_remote_source" or one of its three sisters.
Bytes EncodeEndpoint(std::string_view address, std::string_view name, const EndpointId& id);

// "/init_timing" or "/update_timing" with the device's clock in nanoseconds.
Bytes EncodeTiming(std::string_view address, std::int64_t deviceTime);

}  // namespace corvalint::device
