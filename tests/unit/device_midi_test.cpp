#include "protocol/device_midi.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <tuple>

#include "protocol/osc_arguments.h"
#include "protocol/osc_listener.h"
#include "support/osc_bytes.h"

namespace corvalint {
namespace {

using namespace test;

using Read =
    std::tuple<std::string, std::int32_t, std::int64_t, const std::uint8_t*, std::uint32_t>;

// The packet copied to the end of a block of its own, where a sanitizer sees every byte beyond.
std::optional<Read> ShortWay(const std::string& packet) {
  const std::vector<char> bytes(packet.begin(), packet.end());
  DeviceMidi midi{};
  if (!ReadDeviceMidi(bytes.data(), bytes.size(), midi)) return std::nullopt;
  const auto* const begin = reinterpret_cast<const std::uint8_t*>(bytes.data());
  // As an offset, since the two ways read from two copies.
  return Read{midi.name, midi.id, midi.deviceTime,
              reinterpret_cast<const std::uint8_t*>(midi.data - begin), midi.size};
}

// What the general way makes of a packet that is one "/midi".
class GeneralWay final : public OscListener {
 public:
  std::optional<Read> Take(const std::string& packet) {
    const std::vector<char> bytes(packet.begin(), packet.end());
    begin = reinterpret_cast<const std::uint8_t*>(bytes.data());
    read.reset();
    try {
      ProcessPacket(bytes.data(), bytes.size(), {});
    } catch (const osc::Exception&) {
      return std::nullopt;
    }
    return read;
  }

 protected:
  void BundleStarted(const osc::ReceivedBundle&) override {}
  void BundleFinished(const osc::ReceivedBundle&) override {}
  void ProcessMessage(const osc::ReceivedMessage& message, const RemoteEndpoint&) override {
    if (!AddressIs(message, "/midi")) return;
    OscArguments arguments(message);
    const std::string name = arguments.String();
    const std::int32_t id = arguments.Int32();
    const std::int64_t time = arguments.Int64();
    const OscBlob blob = arguments.Blob();
    read =
        Read{name, id, time, reinterpret_cast<const std::uint8_t*>(blob.data - begin), blob.size};
  }

 private:
  const std::uint8_t* begin = nullptr;
  std::optional<Read> read;
};

TEST(DeviceMidi, IsReadWhole) {
  const std::string packet = MidiMessage("Piano", -9, 0x123456789ABCDEF, "\x90\x3C\x7F");
  const std::vector<char> bytes(packet.begin(), packet.end());
  DeviceMidi midi{};
  ASSERT_TRUE(ReadDeviceMidi(bytes.data(), bytes.size(), midi));
  EXPECT_STREQ(midi.name, "Piano");
  EXPECT_EQ(midi.id, -9);
  EXPECT_EQ(midi.deviceTime, 0x123456789ABCDEF);
  ASSERT_EQ(midi.size, 3u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(midi.data), 3), "\x90\x3C\x7F");
}

TEST(DeviceMidi, EverythingElseGoesTheGeneralWay) {
  const std::string kArguments = OscText("Piano") + OscInt32(1) + OscInt64(2) + OscBlobBytes("abc");
  DeviceMidi midi{};
  ASSERT_TRUE(ReadDeviceMidi(MidiMessage("Piano", 1, 2, "abc").data(), 44, midi));
  for (const std::string& packet :
       {std::string(), std::string("/mid"), OscMessage("/midis", "sihb", kArguments),
        OscMessage("/midi", "ssihb", OscText("Piano") + kArguments),
        OscMessage("/midi", "sihs", kArguments), OscMessage("/init_timing", "h", OscInt64(0)),
        OscBundle(1, {MidiMessage("Piano", 1, 2, "abc")})}) {
    EXPECT_FALSE(ReadDeviceMidi(packet.data(), packet.size(), midi)) << packet;
  }
}

TEST(DeviceMidi, IsReadAsTheGeneralWayReadsIt) {
  GeneralWay general;
  for (const std::string& name :
       {std::string(), std::string("abc"), std::string("Piano"), std::string(300, 'n')}) {
    for (std::size_t size = 0; size < 9; ++size) {
      const std::string packet = MidiMessage(name, 7, -1, std::string(size, '\xF7'));
      EXPECT_EQ(ShortWay(packet), general.Take(packet));
      EXPECT_TRUE(ShortWay(packet).has_value());
    }
  }
}

TEST(DeviceMidi, NeverReadsWhatTheGeneralWayRefusesOrReadsOtherwise) {
  GeneralWay general;
  const std::string whole = MidiMessage("Piano", 7, 5, "\x90\x3C\x7F") + std::string(4, '\0');
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const std::string cut = whole.substr(0, size);
    const auto read = ShortWay(cut);
    if (read.has_value()) {
      EXPECT_EQ(read, general.Take(cut)) << size;
    }
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      std::string changed = whole;
      changed[at] = static_cast<char>(value);
      if (const auto read = ShortWay(changed)) {
        EXPECT_EQ(read, general.Take(changed)) << "byte " << at << " is " << value;
      }
    }
  }
}

}  // namespace
}  // namespace corvalint
