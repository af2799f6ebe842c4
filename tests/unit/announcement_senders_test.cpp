#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "clients/usb_server.h"
#include "support/console_capture.h"
#include "support/recording_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using test::ConsoleCapture;
using test::EndpointMessage;
using test::RecordingClient;
using test::TestServer;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

using Sender = void (UsbServer::*)(const std::string&, std::int32_t, const std::string&);

struct Case {
  Sender send;
  Announcement what;
  std::string address;
  std::size_t longestName;  // in bytes
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.address; }

std::string CaseName(const ::testing::TestParamInfo<Case>& announcement) {
  return announcement.param.address.substr(1);
}

class AnnouncementSendersTest : public ::testing::TestWithParam<Case> {
 protected:
  void Send(const std::string& name, std::int32_t id, const std::string& key) {
    (server.*GetParam().send)(name, id, key);
  }

  TestServer server;
  RecordingClient a, b, c;
};

INSTANTIATE_TEST_SUITE_P(
    All, AnnouncementSendersTest,
    ::testing::Values(Case{&UsbServer::SendAddRemoteSource, Announcement::addRemoteSource,
                           "/add_remote_source", 4067},
                      Case{&UsbServer::SendAddRemoteDestination, Announcement::addRemoteDestination,
                           "/add_remote_destination", 4063},
                      Case{&UsbServer::SendRemoveRemoteSource, Announcement::removeRemoteSource,
                           "/remove_remote_source", 4063},
                      Case{&UsbServer::SendRemoveRemoteDestination,
                           Announcement::removeRemoteDestination, "/remove_remote_destination",
                           4059}),
    CaseName);

TEST_P(AnnouncementSendersTest, CarryTheNameAndTheId) {
  server.clients.Append(a);
  ConsoleCapture console;
  Send("Keys", 0x01020304, "");
  EXPECT_THAT(a.TakePackets(),
              ElementsAre(EndpointMessage(GetParam().address, "Keys", 0x01020304)));
  EXPECT_EQ(console.Text(), "sending " + GetParam().address + ": Keys || 16909060 \n");
}

TEST_P(AnnouncementSendersTest, ShowAnIdOfTheUpperHalfAsNegative) {
  server.clients.Append(a);
  ConsoleCapture console;
  Send("", -2, "");
  EXPECT_THAT(a.TakePackets(), ElementsAre(EndpointMessage(GetParam().address, "", -2)));
  EXPECT_EQ(console.Text(), "sending " + GetParam().address + ":  || -2 \n");
}

TEST_P(AnnouncementSendersTest, PrintWithNoClientConnected) {
  ConsoleCapture console;
  Send("Keys %s", 7, "phone");
  EXPECT_EQ(console.Text(), "sending " + GetParam().address + ": Keys %s || 7 \n");
}

TEST_P(AnnouncementSendersTest, ReachOnlyDevicesThatDoNotOwnTheEndpoint) {
  server.clients.Append(a);
  server.clients.Append(b);
  server.clients.Append(c);
  a.scripted.owns = true;
  c.scripted.owns = true;
  ConsoleCapture console;
  Send("Keys", 7, "phone");
  EXPECT_THAT(a.TakePackets(), IsEmpty());
  EXPECT_THAT(b.TakePackets(), ElementsAre(EndpointMessage(GetParam().address, "Keys", 7)));
  EXPECT_THAT(c.TakePackets(), IsEmpty());
  for (RecordingClient* client : {&a, &b, &c}) {
    EXPECT_THAT(client->scripted.TakeQuestions(), ElementsAre("owns(phone, Keys)"));
  }
  b.scripted.owns = true;
  Send("Keys", 7, "phone");
  EXPECT_THAT(b.TakePackets(), IsEmpty());
  EXPECT_EQ(console.Text(), "sending " + GetParam().address + ": Keys || 7 \nsending " +
                                GetParam().address + ": Keys || 7 \n");
}

TEST_P(AnnouncementSendersTest, GoOnInListOrderWhenAFrameIsDropped) {
  std::vector<char> order;
  a.dropsFrames = true;
  a.whenSent = [&] { order.push_back('a'); };
  b.whenSent = [&] { order.push_back('b'); };
  c.whenSent = [&] { order.push_back('c'); };
  server.clients.Append(b);
  server.clients.Append(a);
  server.clients.Append(c);
  ConsoleCapture console;
  Send("Keys", 7, "");
  EXPECT_THAT(order, ElementsAre('b', 'a', 'c'));
  EXPECT_EQ(console.Text(), "sending " + GetParam().address + ": Keys || 7 \n");
}

TEST_P(AnnouncementSendersTest, PrintAfterTheDeliveryAndWithNoLockHeld) {
  server.clients.Append(a);
  ConsoleCapture console;
  std::string printedBefore = "?";
  std::uint32_t clientHolds = 0, midiHolds = 9;
  a.whenSent = [&] {
    printedBefore = console.Text();
    clientHolds = server.clientLock.HoldsOfThisThread();
    midiHolds = server.Lock().HoldsOfThisThread();
  };
  Send("Keys", 7, "");
  EXPECT_EQ(printedBefore, "");
  EXPECT_EQ(clientHolds, 1u);
  EXPECT_EQ(midiHolds, 0u);
  EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
}

TEST_P(AnnouncementSendersTest, TakeTheLongestNameThatFits) {
  server.clients.Append(a);
  const std::string name(GetParam().longestName, 'n');
  ConsoleCapture console;
  Send(name, 7, "");
  EXPECT_THAT(a.TakePackets(), ElementsAre(EndpointMessage(GetParam().address, name, 7)));
  EXPECT_EQ(console.Text(), "sending " + GetParam().address + ": " + name + " || 7 \n");
}

TEST_P(AnnouncementSendersTest, ThrowForALongerNameAndSendAndPrintNothing) {
  server.clients.Append(a);
  ConsoleCapture console;
  try {
    Send(std::string(GetParam().longestName + 1, 'n'), 7, "");
    ADD_FAILURE() << "nothing was thrown";
  } catch (const osc::OutOfBufferMemoryException& failure) {
    EXPECT_STREQ(failure.what(), "out of buffer memory");
  }
  EXPECT_THAT(a.TakePackets(), IsEmpty());
  EXPECT_EQ(console.Text(), "");
  EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
}

TEST_P(AnnouncementSendersTest, ThrowForALongerNameWithoutAnyDeviceToo) {
  ConsoleCapture console;
  EXPECT_THROW(Send(std::string(GetParam().longestName + 1, 'n'), 7, ""),
               osc::OutOfBufferMemoryException);
  EXPECT_EQ(console.Text(), "");
}

TEST_P(AnnouncementSendersTest, AnnounceAloneSendsTheSameAndPrintsNothing) {
  server.clients.Append(a);
  server.clients.Append(b);
  b.scripted.owns = true;
  ConsoleCapture console;
  server.Announce(GetParam().what, "Keys", 7, "phone");
  EXPECT_THAT(a.TakePackets(), ElementsAre(EndpointMessage(GetParam().address, "Keys", 7)));
  EXPECT_THAT(b.TakePackets(), IsEmpty());
  EXPECT_EQ(console.Text(), "");
}

// --- what holds for every sender that asks managers whether they own an endpoint

TEST(AnnouncementBytes, AreTheseByteForByte) {
  TestServer server;
  RecordingClient device;
  server.clients.Append(device);
  ConsoleCapture console;
  server.SendAddRemoteSource("Piano", 258, "");
  server.SendRemoveRemoteDestination("abc", -1, "");
  EXPECT_THAT(device.TakePackets(),
              ElementsAre("/add_remote_source\0\0,si\0Piano\0\0\0\0\0\x01\x02"s,
                          "/remove_remote_destination\0\0,si\0abc\0\xFF\xFF\xFF\xFF"s));
}

TEST(Ownership, GivesBackTheHoldsThatAManagerKeepsAfterEachClient) {
  TestServer server;
  RecordingClient a, b;
  server.clients.Append(a);
  server.clients.Append(b);
  std::vector<std::uint32_t> holds;
  const auto keepAHold = [&]() CORVALINT_UNCHECKED_LOCKING {
    holds.push_back(server.Lock().HoldsOfThisThread());
    server.Lock().Enter();
  };
  a.scripted.whenAsked = keepAHold;
  b.scripted.whenAsked = keepAHold;
  server.Announce(Announcement::addRemoteSource, "Keys", 7, "");
  const std::uint8_t note[] = {0x90, 60, 100};
  server.SendMidiToOwners(note, 3, "Keys", 7, 0, "");
  EXPECT_THAT(holds, ElementsAre(0, 0, 0, 0));
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  {
    CriticalSectionScope outer(server.clientLock);
    CriticalSectionScope hold(server.Lock());
    server.Announce(Announcement::addRemoteSource, "Keys", 7, "");
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 1u);
  }
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  EXPECT_EQ(server.Lock().StrayLeaves(), 0u);
}

TEST(Ownership, IsAskedAlsoBeforeTheManagersLockExists) {
  TestServer server;
  server.midiLock = nullptr;
  RecordingClient a;
  server.clients.Append(a);
  server.Announce(Announcement::addRemoteSource, "Keys", 7, "phone");
  EXPECT_THAT(a.scripted.TakeQuestions(), ElementsAre("owns(phone, Keys)"));
  EXPECT_THAT(a.TakePackets(), ElementsAre(EndpointMessage("/add_remote_source", "Keys", 7)));
}

TEST(Ownership, IsAskedWithTheClientLockHeld) {
  TestServer server;
  RecordingClient a;
  server.clients.Append(a);
  std::vector<std::uint32_t> holds;
  a.scripted.whenAsked = [&] { holds.push_back(server.clientLock.HoldsOfThisThread()); };
  server.Announce(Announcement::addRemoteSource, "Keys", 7, "");
  const std::uint8_t note[] = {0x90, 60, 100};
  server.SendMidiToOwners(note, 3, "Keys", 7, 0, "");
  EXPECT_THAT(holds, ElementsAre(1, 1));
}

TEST(Arrival, ADeviceArrivesAndLeavesWhileASenderHoldsTheClientLock) {
  TestServer server;
  RecordingClient resident, visitor;
  server.clients.Append(resident);
  bool changedInTime = false;
  std::thread callback;
  resident.whenSent = [&] {
    resident.whenSent = nullptr;
    std::promise<void> changed;
    auto done = changed.get_future();
    callback = std::thread([&, changed = std::move(changed)]() mutable {
      server.clients.Append(visitor);
      server.clients.Remove(resident);
      changed.set_value();
    });
    changedInTime = done.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  };
  server.Announce(Announcement::addRemoteSource, "Keys", 7, "");
  callback.join();
  EXPECT_TRUE(changedInTime);
  EXPECT_THAT(visitor.TakePackets(), IsEmpty());
  server.Announce(Announcement::addRemoteSource, "Keys", 8, "");
  EXPECT_THAT(resident.TakePackets(),
              ElementsAre(EndpointMessage("/add_remote_source", "Keys", 7)));
  EXPECT_THAT(visitor.TakePackets(), ElementsAre(EndpointMessage("/add_remote_source", "Keys", 8)));
}

}  // namespace
}  // namespace corvalint
