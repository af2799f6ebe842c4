#include "device/osc_codec.h"

#include <osc/OscOutboundPacketStream.h>
#include <osc/OscReceivedElements.h>

#include <cstdio>
#include <stdexcept>
#include <type_traits>

namespace corvalint::device {
namespace {

static_assert(sizeof(osc::int64) == 8, "time stamps are 8 bytes on the wire");

constexpr int kDeepestBundle = 64;
constexpr std::size_t kBlobBytesShown = 16;

OscArgument DecodeArgument(const osc::ReceivedMessageArgument& argument) {
  switch (argument.TypeTag()) {
    case 'i':
      return std::int32_t{argument.AsInt32()};
    case 'h':
      return static_cast<std::int64_t>(argument.AsInt64());
    case 'f':
      return argument.AsFloat();
    case 'd':
      return argument.AsDouble();
    case 's':
      return std::string(argument.AsString());
    case 'b': {
      const void* data = nullptr;
      osc::osc_bundle_element_size_t size = 0;
      argument.AsBlob(data, size);
      const auto* first = static_cast<const std::uint8_t*>(data);
      return Bytes(first, first + size);
    }
    case 'T':
    case 'F':
      return argument.AsBool();
    default:
      throw std::runtime_error(std::string("unexpected type tag ") + argument.TypeTag());
  }
}

OscMessage DecodeMessage(const osc::ReceivedMessage& received) {
  OscMessage message;
  message.address = received.AddressPattern();
  if (received.ArgumentCount() == 0) return message;
  message.typeTags = received.TypeTags();
  for (auto it = received.ArgumentsBegin(); it != received.ArgumentsEnd(); ++it) {
    message.arguments.push_back(DecodeArgument(*it));
  }
  return message;
}

void DecodeBundle(const osc::ReceivedBundle& bundle, int depth, std::vector<OscMessage>& messages) {
  if (depth > kDeepestBundle) throw std::runtime_error("bundles nested too deep");
  for (auto it = bundle.ElementsBegin(); it != bundle.ElementsEnd(); ++it) {
    if (it->IsBundle()) {
      DecodeBundle(osc::ReceivedBundle(*it), depth + 1, messages);
    } else {
      messages.push_back(DecodeMessage(osc::ReceivedMessage(*it)));
    }
  }
}

void AppendArgument(osc::OutboundPacketStream& stream, const OscArgument& argument) {
  std::visit(
      [&stream](const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::string>) {
          stream << value.c_str();
        } else if constexpr (std::is_same_v<T, Bytes>) {
          // The stream copies with memcpy, which must not be given a null pointer even for nothing.
          static constexpr std::uint8_t kNothing = 0;
          stream << osc::Blob(value.empty() ? &kNothing : value.data(),
                              static_cast<osc::osc_bundle_element_size_t>(value.size()));
        } else if constexpr (std::is_same_v<T, std::int32_t>) {
          stream << static_cast<osc::int32>(value);
        } else if constexpr (std::is_same_v<T, std::int64_t>) {
          stream << static_cast<osc::int64>(value);
        } else {
          stream << value;
        }
      },
      argument);
}

// Room that surely holds the message: every argument padded, its tag, and the address.
std::size_t RoomFor(const OscMessage& message) {
  std::size_t room = 32 + message.address.size() + 2 * message.arguments.size();
  for (const OscArgument& argument : message.arguments) {
    room += 16;
    if (const auto* text = std::get_if<std::string>(&argument)) room += text->size();
    if (const auto* blob = std::get_if<Bytes>(&argument)) room += blob->size();
  }
  return room / 4 * 4 + 4;
}

OscArgument ArgumentOf(const EndpointId& id) {
  if (const auto* number = std::get_if<std::int32_t>(&id)) return *number;
  return std::get<std::string>(id);
}

// A text must not command the terminal it is shown on.
std::string DescribeText(const std::string& text) {
  std::string shown;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte != 0x7F) {
      shown += character;
      continue;
    }
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02x", unsigned{byte});
    shown += hex;
  }
  return shown;
}

std::string DescribeBlob(const Bytes& blob) {
  std::string text(1, '[');
  for (std::size_t i = 0; i < blob.size() && i < kBlobBytesShown; ++i) {
    char hex[8];
    std::snprintf(hex, sizeof hex, i == 0 ? "%02x" : " %02x", unsigned{blob[i]});
    text += hex;
  }
  if (blob.size() > kBlobBytesShown) {
    text.append(" ... ").append(std::to_string(blob.size())).append(" bytes");
  }
  return text.append("]");
}

std::string DescribeArgument(const OscArgument& argument) {
  return std::visit(
      [](const auto& value) -> std::string {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return DescribeText(value);
        } else if constexpr (std::is_same_v<T, Bytes>) {
          return DescribeBlob(value);
        } else if constexpr (std::is_same_v<T, bool>) {
          return value ? "true" : "false";
        } else {
          return std::to_string(value);
        }
      },
      argument);
}

}  // namespace

std::optional<MidiMessage> AsMidi(const OscMessage& message) {
  if (message.address != "/midi" || message.typeTags != "sihb") return std::nullopt;
  return MidiMessage{message.Argument<std::string>(0), message.Argument<std::int32_t>(1),
                     message.Argument<std::int64_t>(2), message.Argument<Bytes>(3)};
}

std::string Describe(const OscMessage& message) {
  std::string text = DescribeText(message.address);
  for (const OscArgument& argument : message.arguments) {
    text.append(1, ' ').append(DescribeArgument(argument));
  }
  return text;
}

std::vector<OscMessage> DecodePacket(const std::uint8_t* data, std::size_t size) {
  if (size > 0x7FFFFFFC) throw std::runtime_error("invalid packet size");
  std::vector<OscMessage> messages;
  try {
    const osc::ReceivedPacket packet(reinterpret_cast<const char*>(data),
                                     static_cast<osc::osc_bundle_element_size_t>(size));
    if (packet.IsBundle()) {
      DecodeBundle(osc::ReceivedBundle(packet), 1, messages);
    } else {
      messages.push_back(DecodeMessage(osc::ReceivedMessage(packet)));
    }
  } catch (const osc::Exception& error) {
    throw std::runtime_error(error.what());
  }
  return messages;
}

std::vector<OscMessage> DecodePacket(const Bytes& packet) {
  return DecodePacket(packet.data(), packet.size());
}

Bytes EncodeMessage(const OscMessage& message) {
  std::vector<char> buffer(RoomFor(message));
  osc::OutboundPacketStream stream(buffer.data(), buffer.size());
  stream << osc::BeginMessage(message.address.c_str());
  for (const OscArgument& argument : message.arguments) AppendArgument(stream, argument);
  stream << osc::EndMessage;
  return Bytes(stream.Data(), stream.Data() + stream.Size());
}

Bytes EncodeBundle(const std::vector<Bytes>& elements) {
  Bytes bundle{'#', 'b', 'u', 'n', 'd', 'l', 'e', 0, 0, 0, 0, 0, 0, 0, 0, 1};
  for (const Bytes& element : elements) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      bundle.push_back(static_cast<std::uint8_t>(element.size() >> shift));
    }
    bundle.insert(bundle.end(), element.begin(), element.end());
  }
  return bundle;
}

Bytes EncodeMidi(std::string_view name, const EndpointId& id, std::int64_t time,
                 const Bytes& midi) {
  return EncodeMessage({"/midi", "", {std::string(name), ArgumentOf(id), time, midi}});
}

Bytes EncodeEndpoint(std::string_view address, std::string_view name, const EndpointId& id) {
  return EncodeMessage({std::string(address), "", {std::string(name), ArgumentOf(id)}});
}

Bytes EncodeTiming(std::string_view address, std::int64_t deviceTime) {
  return EncodeMessage({std::string(address), "", {deviceTime}});
}

}  // namespace corvalint::device
