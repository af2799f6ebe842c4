// Input: one OSC packet. Whatever the check lets through, the OSC library must read inside the
// packet, and inside the very element that it reads; and it must be let through exactly when it is
// a whole packet.

#include <osc/OscReceivedElements.h>

#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz/support/check.h"
#include "fuzz/support/osc_model.h"
#include "protocol/device_midi.h"
#include "protocol/osc_arguments.h"
#include "protocol/osc_listener.h"

namespace corvalint::fuzz {

namespace {

// Follows the events of a packet and compares each with the model's.
class Follower final : public OscListener {
 public:
  void Follow(std::string_view newPacket) {
    packet = newPacket;
    next = 0;
    const bool whole = ReadOscPacket(packet, expected);
    bool accepted = true;
    try {
      ProcessPacket(packet.data(), packet.size(), {});
    } catch (const osc::MalformedPacketException&) {
      accepted = false;
    } catch (const osc::MalformedBundleException&) {
      accepted = false;
    } catch (const osc::MalformedMessageException&) {
      accepted = false;
    }
    CompareShortWay(whole);
    Check(accepted == whole, accepted ? "a wrong packet was accepted" : "a packet was refused");
    Check(next == expected.size(), "fewer messages and bundles than the packet has");
  }

 protected:
  void BundleStarted(const osc::ReceivedBundle& bundle) override {
    const OscEvent& event = Next(OscEvent::bundleStarted);
    Check(bundle.TimeTag() == OscNumber(packet.substr(event.at + 8, 8)), "time tag");
  }
  void BundleFinished(const osc::ReceivedBundle& /*bundle*/) override {
    Next(OscEvent::bundleFinished);
  }
  void ProcessMessage(const osc::ReceivedMessage& message,
                      const RemoteEndpoint& /*endpoint*/) override {
    const OscEvent& event = Next(OscEvent::message);
    const std::string_view bytes = packet.substr(event.at, event.size);
    Check(message.AddressPattern() == bytes.data(), "another message than the next one");
    Check(std::strlen(message.AddressPattern()) < bytes.size(), "address beyond its message");
    Check(ReadOscMessage(bytes, arguments), "a message that is none");
    auto place = arguments.begin();
    for (auto it = message.ArgumentsBegin(); it != message.ArgumentsEnd(); ++it) {
      Check(place != arguments.end(), "more arguments than the message has");
      CompareArgument(*it, *place++, bytes);
    }
    Check(place == arguments.end(), "fewer arguments than the message has");
    ReadAsDispatchDoes(message);
  }

 private:
  // A packet that goes the short way of a "/midi" is one whole message, read to the same values.
  void CompareShortWay(bool whole) {
    DeviceMidi midi{};
    if (!ReadDeviceMidi(packet.data(), packet.size(), midi)) return;
    Check(whole && expected.size() == 1 && expected[0].kind == OscEvent::message,
          "the short way took what is no message");
    Check(ReadOscMessage(packet, arguments) && arguments.size() == 4, "the short way's arguments");
    const auto value = [&](std::size_t i) {
      return packet.substr(arguments[i].at, arguments[i].size);
    };
    Check(midi.name == value(0).data() && std::strlen(midi.name) == value(0).size(), "name");
    Check(static_cast<std::uint32_t>(midi.id) == OscNumber(value(1)), "id");
    Check(static_cast<std::uint64_t>(midi.deviceTime) == OscNumber(value(2)), "time");
    Check(
        reinterpret_cast<const char*>(midi.data) == value(3).data() && midi.size == value(3).size(),
        "bytes");
  }

  const OscEvent& Next(OscEvent::Kind kind) {
    Check(next < expected.size(), "more messages and bundles than the packet has");
    const OscEvent& event = expected[next++];
    Check(event.kind == kind, "messages and bundles in another order");
    return event;
  }

  static void CompareArgument(const osc::ReceivedMessageArgument& argument,
                              const OscArgumentPlace& place, std::string_view bytes) {
    Check(argument.TypeTag() == place.tag, "type tag");
    const std::string_view value = bytes.substr(place.at, place.size);
    switch (place.tag) {
      case 's':
      case 'S': {
        const char* const text = place.tag == 's' ? argument.AsString() : argument.AsSymbol();
        Check(text == value.data() && std::strlen(text) == place.size, "text");
        return;
      }
      case 'b': {
        const void* data = nullptr;
        osc::osc_bundle_element_size_t size = 0;
        argument.AsBlob(data, size);
        Check(data == value.data() && static_cast<std::size_t>(size) == place.size, "blob");
        return;
      }
      case '[':
        argument.ComputeArrayItemCount();
        return;
      default:
        if (place.size > 0) Check(Bits(argument) == OscNumber(value), "number");
    }
  }

  static std::uint64_t Bits(const osc::ReceivedMessageArgument& argument) {
    switch (argument.TypeTag()) {
      case 'i':
        return static_cast<std::uint32_t>(argument.AsInt32());
      case 'f':
        return std::bit_cast<std::uint32_t>(argument.AsFloat());
      case 'c':
        // The library gives the low byte of the four.
        return static_cast<std::uint32_t>(argument.AsInt32Unchecked());
      case 'r':
        return argument.AsRgbaColor();
      case 'm':
        return argument.AsMidiMessage();
      case 'h':
        return static_cast<std::uint64_t>(argument.AsInt64());
      case 't':
        return argument.AsTimeTag();
      default:
        return std::bit_cast<std::uint64_t>(argument.AsDouble());
    }
  }

  // The reader of the message dispatch, in the orders of its messages.
  static void ReadAsDispatchDoes(const osc::ReceivedMessage& message) {
    try {
      OscArguments name(message);
      name.String();
      name.Int32();
      name.Int64();
      name.Blob();
    } catch (const osc::MissingArgumentException&) {
    } catch (const osc::WrongArgumentTypeException&) {
    }
  }

  std::string_view packet;
  std::vector<OscEvent> expected;
  std::size_t next = 0;
  std::vector<OscArgumentPlace> arguments;
};

}  // namespace

}  // namespace corvalint::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto* const follower = new corvalint::fuzz::Follower;
  follower->Follow({reinterpret_cast<const char*>(data), size});
  return 0;
}
