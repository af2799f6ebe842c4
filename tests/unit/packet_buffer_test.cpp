#include "clients/packet_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <optional>
#include <set>

#include "clients/usb_server.h"
#include "support/allocation_count.h"
#include "support/osc_bytes.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using test::allocations;

class SilentOwner final : public EndpointOwner {
 public:
  bool OwnsEndpoint(const std::string&, const std::string&) override { return true; }
  void SendMidiToDestination(std::string_view, std::uint32_t) override {}
  std::vector<PublishedEndpoint> PublishedEndpoints() override { return {}; }
};

// Counts bytes and keeps none, so that only the sender's own allocations are seen.
class CountingClient final : public DeviceClient {
 public:
  int SendFramed(const void*, std::uint32_t size) override {
    bytes += size;
    return static_cast<int>(size) + 12;
  }
  EndpointOwner& Owner() override { return owner; }

  std::uint64_t bytes = 0;

 private:
  SilentOwner owner;
};

TEST(PacketBuffer, HasRoomForWhatIsExpectedOrForTheLargestPacket) {
  EXPECT_EQ(PacketBuffer(0).Capacity(), 1024u);
  EXPECT_EQ(PacketBuffer(1024).Capacity(), 1024u);
  EXPECT_EQ(PacketBuffer(1025).Capacity(), 131072u);
  EXPECT_EQ(PacketBuffer(131072).Capacity(), 131072u);
  EXPECT_EQ(PacketBuffer(131073).Capacity(), 131072u);
  EXPECT_EQ(PacketBuffer(std::size_t{1} << 40).Capacity(), 131072u);
}

TEST(PacketBuffer, MakesAFrameOfItsFirstBytes) {
  for (const std::size_t size : {4u, 1024u, 1025u, 131072u}) {
    PacketBuffer buffer(size);
    std::memset(buffer.Data(), 7, size);
    const Frame frame = buffer.Framed(size);
    EXPECT_EQ(frame.Payload(), buffer.Data());
    EXPECT_EQ(frame.payloadSize, size);
    EXPECT_EQ(std::string(frame.header, 12), test::OscInt32(static_cast<std::int32_t>(size)) +
                                                 test::OscInt32(2) + test::OscInt32(2));
  }
}

TEST(PacketBuffer, AllItsRoomIsItsOwn) {
  std::deque<PacketBuffer> buffers;
  std::set<char*> places;
  for (const std::size_t size : {100u, 131072u, 100u, 131072u, 131072u}) {
    buffers.emplace_back(size);
    places.insert(buffers.back().Data());
    std::memset(buffers.back().Data(), static_cast<int>(buffers.size()), buffers.back().Capacity());
  }
  EXPECT_EQ(places.size(), 5u);
  char expected = 1;
  for (PacketBuffer& buffer : buffers) {
    EXPECT_EQ(buffer.Data()[0], expected);
    EXPECT_EQ(buffer.Data()[buffer.Capacity() - 1], expected);
    ++expected;
  }
}

TEST(PacketBuffer, UsesALargeBufferAgain) {
  { PacketBuffer first(131072); }
  const int before = allocations;
  for (int i = 0; i < 10; ++i) PacketBuffer again(131072);
  EXPECT_EQ(allocations, before);
}

TEST(PacketBuffer, KeepsAtMostEightLargeBuffers) {
  std::array<std::optional<PacketBuffer>, 12> used;
  for (auto& buffer : used) buffer.emplace(std::size_t{131072});
  for (auto& buffer : used) buffer.reset();
  const int before = allocations;
  for (auto& buffer : used) buffer.emplace(std::size_t{131072});
  EXPECT_EQ(allocations - before, 12 - 8);
}

TEST(MidiSenders, TakeNothingFromTheHeapForAMessage) {
  test::TestServer server;
  CountingClient a, b;
  server.clients.Append(a);
  server.clients.Append(b);
  const std::uint8_t note[] = {0x90, 60, 100};
  const std::vector<std::uint8_t> sysex(65535, 0x55);
  const std::string name = "Keys", key = "phone";  // short enough to live in the string itself
  const auto sendAll = [&](const std::uint8_t* data, std::uint32_t length) {
    server.SendMidiToAll(data, length, name, 1, 2);
    server.SendMidiToOwners(data, length, name, 1, 2, key);
    server.RelayMidiToOthers(data, length, name.c_str(), 1, a, 2);
  };
  sendAll(sysex.data(), 65535);  // fills the store
  a.bytes = b.bytes = 0;
  const int before = allocations;
  sendAll(note, 3);
  sendAll(sysex.data(), 65535);
  EXPECT_EQ(allocations, before);
  EXPECT_EQ(a.bytes, 2u * (44 + 40 + 65536));
  EXPECT_EQ(b.bytes, 3u * (44 + 40 + 65536));
}

}  // namespace
}  // namespace corvalint
