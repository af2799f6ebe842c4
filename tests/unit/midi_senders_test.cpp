#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <limits>

#include "clients/usb_server.h"
#include "support/recording_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using test::MidiMessage;
using test::RecordingClient;
using test::TestServer;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using namespace std::string_literals;

constexpr std::uint8_t kNote[] = {0x90, 0x3C, 0x64};
const std::string kNoteBytes = "\x90\x3C\x64";

// The three senders behind one face: each sends to `a` at least.
enum class Way { toAll, toOwners, relayed };

class MidiSendersTest : public ::testing::TestWithParam<Way> {
 protected:
  MidiSendersTest() {
    a.scripted.owns = true;
    server.clients.Append(a);
  }

  void Send(const std::uint8_t* data, std::uint32_t length, const std::string& name,
            std::int32_t id, std::int64_t timestamp) {
    switch (GetParam()) {
      case Way::toAll:
        return server.SendMidiToAll(data, length, name, id, timestamp);
      case Way::toOwners:
        return server.SendMidiToOwners(data, length, name, id, timestamp, "phone");
      case Way::relayed:
        return server.RelayMidiToOthers(data, length, name.c_str(), id, origin, timestamp);
    }
  }

  TestServer server;
  RecordingClient a, origin;
};

std::string WayName(const ::testing::TestParamInfo<Way>& way) {
  switch (way.param) {
    case Way::toAll:
      return "ToAll";
    case Way::toOwners:
      return "ToOwners";
    case Way::relayed:
      break;
  }
  return "Relayed";
}

INSTANTIATE_TEST_SUITE_P(All, MidiSendersTest,
                         ::testing::Values(Way::toAll, Way::toOwners, Way::relayed), WayName);

TEST_P(MidiSendersTest, SendTheseBytes) {
  Send(kNote, 3, "Keys", -2, 0x0102030405060708);
  EXPECT_THAT(a.TakePackets(),
              ElementsAre("/midi\0\0\0,sihb\0\0\0Keys\0\0\0\0\xFF\xFF\xFF\xFE\x01\x02\x03\x04\x05"
                          "\x06\x07\x08\0\0\0\x03\x90\x3C\x64\0"s));
}

TEST_P(MidiSendersTest, CarryEveryTimeStampWhole) {
  for (const std::int64_t time : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
                                  std::int64_t{0}, std::numeric_limits<std::int64_t>::max()}) {
    Send(kNote, 3, "Keys", 1, time);
    EXPECT_THAT(a.TakePackets(), ElementsAre(MidiMessage("Keys", 1, time, kNoteBytes)));
  }
}

TEST_P(MidiSendersTest, CarryAnEmptyBlobForEmptyData) {
  Send(kNote, 0, "Keys", 1, 2);
  Send(nullptr, 0, "Keys", 1, 2);
  const std::string packet = MidiMessage("Keys", 1, 2, "");
  ASSERT_EQ(packet.size(), 40u);
  EXPECT_THAT(a.TakePackets(), ElementsAre(packet, packet));
}

TEST_P(MidiSendersTest, CarryEmptyAndUnalignedNames) {
  for (const std::string name : {"", "a", "abc", "abcd"}) {
    Send(kNote, 3, name, 1, 2);
    EXPECT_THAT(a.TakePackets(), ElementsAre(MidiMessage(name, 1, 2, kNoteBytes)));
  }
}

// Around the border between the small buffer and the large one.
TEST_P(MidiSendersTest, CarryDataOfEverySize) {
  for (std::uint32_t length = 970; length < 1000; ++length) {
    const std::vector<std::uint8_t> data(length, 0x42);
    Send(data.data(), length, "Keys", 1, 2);
    EXPECT_THAT(a.TakePackets(), ElementsAre(MidiMessage("Keys", 1, 2, std::string(length, 'B'))));
  }
}

TEST_P(MidiSendersTest, FillAPacketOf131072BytesAndNoMore) {
  const std::vector<std::uint8_t> data(131037, 0x42);
  Send(data.data(), 131036, "a", 1, 2);
  const auto packets = a.TakePackets();
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].size(), 131072u);
  EXPECT_TRUE(packets[0] == MidiMessage("a", 1, 2, std::string(131036, 'B')));
  try {
    Send(data.data(), 131037, "a", 1, 2);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const osc::OutOfBufferMemoryException& failure) {
    EXPECT_STREQ(failure.what(), "out of buffer memory");
  }
  EXPECT_THAT(a.TakePackets(), IsEmpty());
  EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
}

TEST_P(MidiSendersTest, ThrowForANameThatFillsThePacket) {
  const std::string longest(131072 - 16 - 16 - 4 - 1, 'n');
  Send(kNote, 3, longest, 1, 2);
  const auto packets = a.TakePackets();
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_TRUE(packets[0] == MidiMessage(longest, 1, 2, kNoteBytes));
  EXPECT_THROW(Send(kNote, 3, longest + 'n', 1, 2), osc::OutOfBufferMemoryException);
  EXPECT_THAT(a.TakePackets(), IsEmpty());
}

// Lengths that turn negative, or to zero with the padding, in signed 32 bits.
TEST_P(MidiSendersTest, ThrowForAnyLengthThatIsNoLength) {
  for (const std::uint32_t length :
       {131073u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFCu, 0xFFFFFFFDu, 0xFFFFFFFFu}) {
    EXPECT_THROW(Send(kNote, length, "a", 1, 2), osc::OutOfBufferMemoryException) << length;
  }
  EXPECT_THAT(a.TakePackets(), IsEmpty());
}

TEST_P(MidiSendersTest, ThrowForWhatFitsNoPacketWithoutAnyDeviceToo) {
  server.clients.Remove(a);
  EXPECT_THROW(Send(kNote, 3, std::string(131072, 'n'), 1, 2), osc::OutOfBufferMemoryException);
  EXPECT_THROW(Send(kNote, 131073, "a", 1, 2), osc::OutOfBufferMemoryException);
}

TEST_P(MidiSendersTest, GoOnWhenAFrameIsDropped) {
  RecordingClient b;
  b.scripted.owns = true;
  server.clients.Append(b);
  a.dropsFrames = true;
  Send(kNote, 3, "Keys", 1, 2);
  EXPECT_THAT(a.TakePackets(), SizeIs(1));
  EXPECT_THAT(b.TakePackets(), ElementsAre(MidiMessage("Keys", 1, 2, kNoteBytes)));
}

TEST_P(MidiSendersTest, SendInListOrderToClientsThatDoNotEnd) {
  std::string order;
  RecordingClient b, c, d;
  server.clients.Remove(a);
  for (auto* const client : {&c, &a, &d, &b}) {
    client->scripted.owns = true;
    server.clients.Append(*client);
  }
  d.gate.Close();
  a.whenSent = [&] { order += 'a'; };
  b.whenSent = [&] { order += 'b'; };
  c.whenSent = [&] { order += 'c'; };
  d.whenSent = [&] { order += 'd'; };
  Send(kNote, 3, "Keys", 1, 2);
  EXPECT_EQ(order, "cab");
}

TEST_P(MidiSendersTest, KeepAClientAliveWhileTheySendToIt) {
  bool drained = true;
  a.whenSent = [&] {
    server.clients.Remove(a);
    a.gate.Close();
    drained = a.gate.Drained();
  };
  Send(kNote, 3, "Keys", 1, 2);
  EXPECT_FALSE(drained);
  EXPECT_TRUE(a.gate.Drained());
}

TEST_P(MidiSendersTest, SendNothingWithNoClient) {
  server.clients.Remove(a);
  Send(kNote, 3, "Keys", 1, 2);
  EXPECT_THAT(a.TakePackets(), IsEmpty());
}

TEST_P(MidiSendersTest, HoldTheClientLockUnlessTheyRelay) {
  std::uint32_t clientHolds = 9, midiHolds = 9;
  a.whenSent = [&] {
    clientHolds = server.clientLock.HoldsOfThisThread();
    midiHolds = server.Lock().HoldsOfThisThread();
  };
  Send(kNote, 3, "Keys", 1, 2);
  EXPECT_EQ(clientHolds, GetParam() == Way::relayed ? 0u : 1u);
  EXPECT_EQ(midiHolds, 0u);
}

// --- who receives

class DeliveryTest : public ::testing::Test {
 protected:
  DeliveryTest() {
    for (RecordingClient* client : {&a, &b, &c}) server.clients.Append(*client);
  }

  TestServer server;
  RecordingClient a, b, c;
};

TEST_F(DeliveryTest, ToAllAsksNobody) {
  server.SendMidiToAll(kNote, 3, "Keys", 1, 2);
  for (RecordingClient* client : {&a, &b, &c}) {
    EXPECT_THAT(client->TakePackets(), ElementsAre(MidiMessage("Keys", 1, 2, kNoteBytes)));
    EXPECT_THAT(client->scripted.TakeQuestions(), IsEmpty());
  }
}

TEST_F(DeliveryTest, ToOwnersReachesTheDevicesWhoseManagerSaysYes) {
  b.scripted.owns = true;
  server.SendMidiToOwners(kNote, 3, "Keys", 1, 2, "phone");
  EXPECT_THAT(a.TakePackets(), IsEmpty());
  EXPECT_THAT(b.TakePackets(), ElementsAre(MidiMessage("Keys", 1, 2, kNoteBytes)));
  EXPECT_THAT(c.TakePackets(), IsEmpty());
  for (RecordingClient* client : {&a, &b, &c}) {
    EXPECT_THAT(client->scripted.TakeQuestions(), ElementsAre("owns(phone, Keys)"));
  }
}

TEST_F(DeliveryTest, ToOwnersSendsNothingForAnEndpointThatNobodyOwns) {
  server.SendMidiToOwners(kNote, 3, "Keys", 1, 2, "");
  for (RecordingClient* client : {&a, &b, &c}) EXPECT_THAT(client->TakePackets(), IsEmpty());
}

TEST_F(DeliveryTest, ARelayReachesAllButItsOrigin) {
  std::string order;
  b.whenSent = [&] { order += 'b'; };
  c.whenSent = [&] { order += 'c'; };
  server.RelayMidiToOthers(kNote, 3, "Keys", 1, a, 2);
  EXPECT_EQ(order, "bc");
  EXPECT_THAT(a.TakePackets(), IsEmpty());
  EXPECT_THAT(b.TakePackets(), ElementsAre(MidiMessage("Keys", 1, 2, kNoteBytes)));
  EXPECT_THAT(c.TakePackets(), ElementsAre(MidiMessage("Keys", 1, 2, kNoteBytes)));
  for (RecordingClient* client : {&a, &b, &c}) {
    EXPECT_THAT(client->scripted.TakeQuestions(), IsEmpty());
  }
}

TEST_F(DeliveryTest, ARelayAndANoticeNeedNoClientLock) {
  bool done = false;
  std::future<void> relay;
  {
    CriticalSectionScope hold(server.clientLock);
    relay = std::async(std::launch::async, [&] {
      server.RelayMidiToOthers(kNote, 3, "Keys", 1, a, 2);
      server.NotifyOtherManagers("Keys", 1, a);
    });
    done = relay.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  }
  relay.wait();
  EXPECT_TRUE(done);
  EXPECT_THAT(b.TakePackets(), SizeIs(1));
  EXPECT_THAT(b.scripted.TakeQuestions(), ElementsAre("destination(Keys, 1)"));
}

TEST_F(DeliveryTest, ANoticeReachesAllManagersButTheOrigins) {
  std::string order;
  a.scripted.whenHandled = [&] { order += 'a'; };
  c.scripted.whenHandled = [&] { order += 'c'; };
  server.NotifyOtherManagers("Keys", -1, b);
  EXPECT_EQ(order, "ac");
  EXPECT_THAT(a.scripted.TakeQuestions(), ElementsAre("destination(Keys, 4294967295)"));
  EXPECT_THAT(b.scripted.TakeQuestions(), IsEmpty());
  EXPECT_THAT(c.scripted.TakeQuestions(), ElementsAre("destination(Keys, 4294967295)"));
  for (RecordingClient* client : {&a, &b, &c}) EXPECT_THAT(client->TakePackets(), IsEmpty());
}

TEST_F(DeliveryTest, ANoticeEntersTheManagersLockTwiceAndLeavesItAsItWas) {
  std::vector<std::uint32_t> holds;
  a.scripted.whenHandled = [&]() CORVALINT_UNCHECKED_LOCKING {
    holds.push_back(server.Lock().HoldsOfThisThread());
    server.Lock().Leave();
  };
  b.scripted.whenHandled = [&]() CORVALINT_UNCHECKED_LOCKING {
    holds.push_back(server.Lock().HoldsOfThisThread());
    server.Lock().Leave();
    server.Lock().Leave();
  };
  server.NotifyOtherManagers("Keys", 1, c);
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  {
    CriticalSectionScope hold(server.Lock());
    server.NotifyOtherManagers("Keys", 1, c);
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 1u);
  }
  EXPECT_THAT(holds, ElementsAre(2, 2, 3, 3));
  EXPECT_EQ(server.Lock().StrayLeaves(), 0u);
}

TEST_F(DeliveryTest, ANoticeBeforeTheManagersLockExistsAsksNobody) {
  server.midiLock = nullptr;
  server.NotifyOtherManagers("Keys", 1, c);
  EXPECT_THAT(a.scripted.TakeQuestions(), IsEmpty());
}

}  // namespace
}  // namespace corvalint
