#include "device/rubbish.h"

#include <random>

#include "device/frame.h"

namespace corvalint::device {
namespace {

// The standard fixes this engine's numbers, but not those of its distributions, hence the modulo.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : engine(seed) {}
  std::uint64_t Below(std::uint64_t end) { return engine() % end; }
  std::uint8_t Byte() { return static_cast<std::uint8_t>(engine()); }

 private:
  std::mt19937_64 engine;
};

Bytes AnyBytes(Dice& dice, std::uint64_t longest) {
  Bytes bytes(1 + dice.Below(longest));
  for (std::uint8_t& byte : bytes) byte = dice.Byte();
  return bytes;
}

// A packet that the companion app could have sent.
Bytes SoundPacket(Dice& dice) {
  static const char* const kAddresses[] = {"/add_remote_source", "/add_remote_destination",
                                           "/remove_remote_source", "/remove_remote_destination"};
  const auto id = static_cast<std::int32_t>(dice.Below(1000));
  switch (dice.Below(4)) {
    case 0:
      return EncodeMidi("rubbish", id, static_cast<std::int64_t>(dice.Below(1u << 30)),
                        AnyBytes(dice, 40));
    case 1:
      return EncodeTiming("/update_timing", static_cast<std::int64_t>(dice.Below(1u << 30)));
    case 2:
      return EncodeBundle({EncodeMidi("rubbish", id, 1, {0x90, 60, 1})});
    default:
      return EncodeEndpoint(kAddresses[dice.Below(4)], "rubbish", id);
  }
}

// Flips bytes, cuts the end off, or writes a length near the end of the number range into a packet.
Bytes DamagedPacket(Dice& dice) {
  Bytes packet = SoundPacket(dice);
  switch (dice.Below(3)) {
    case 0:
      for (std::uint64_t flips = 1 + dice.Below(4); flips > 0; --flips) {
        packet[dice.Below(packet.size())] = dice.Byte();
      }
      break;
    case 1:
      packet.resize(1 + dice.Below(packet.size()));
      break;
    default: {
      const std::size_t word = dice.Below(packet.size() / 4) * 4;
      const auto last = static_cast<std::uint8_t>(0xF0 + dice.Below(16));
      packet[word] = dice.Below(2) == 0 ? 0x7F : 0xFF;
      packet[word + 1] = packet[word + 2] = 0xFF;
      packet[word + 3] = last;
      break;
    }
  }
  return packet;
}

}  // namespace

Bytes MakeRubbish(std::uint64_t seed, std::uint64_t frames, RubbishKind kind) {
  Dice dice(seed);
  FrameBatch batch;
  for (std::uint64_t i = 0; i < frames; ++i) {
    if (kind == RubbishKind::kStream) {
      batch.AddRaw(AnyBytes(dice, 256), 1);
    } else if (dice.Below(3) == 0) {
      batch.AddPacket(AnyBytes(dice, 512));
    } else {
      batch.AddPacket(DamagedPacket(dice));
    }
  }
  return batch.Data();
}

}  // namespace corvalint::device
