// Loopback OSC ports of the shipped DLL when what a device asks for, or the desktop, is not in
// order: nothing else is disturbed and no thread is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "windows/support/osc_two_devices.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kSendFailed = "sendto() failed\n";

std::size_t FailedSends(const std::string& errors) {
  std::size_t count = 0;
  for (std::size_t at = errors.find(kSendFailed); at != std::string::npos;
       at = errors.find(kSendFailed, at + 1)) {
    ++count;
  }
  return count;
}

class OscHardship : public OscTwoDevices {
 protected:
  void SetUp() override {
    OscTwoDevices::SetUp();
    if (threads == 0) threads = bridge->Control().Counts().threads;
    ASSERT_TRUE(witness.Create());
    failedBefore = FailedSends(bridge->GetHost().GetProcess().Errors());
    console.Restart();
  }
  // A port that was open all the time works both ways, and no thread is left over.
  void TearDown() override {
    EXPECT_TRUE(witness.ToDevice(Text("up")));
    EXPECT_TRUE(witness.ToProgram(Text("down")));
    console.Restart();
    EXPECT_TRUE(witness.Remove());
    ExpectEnded(1);
    EXPECT_TRUE(Await([&] { return bridge->Control().Counts().threads == threads; }))
        << bridge->Control().Counts().threads << " threads instead of " << threads;
    EXPECT_THAT(b->App().Record().AllMessages(), IsEmpty());
  }

  // Until the library has told so often on standard error that a send failed.
  bool WaitForFailedSends(std::size_t count) {
    return bridge->GetHost().GetProcess().WaitForErrors(
        [&](const std::string& errors) { return FailedSends(errors) == failedBefore + count; });
  }
  void ExpectNoFailedSend() {
    ASSERT_TRUE(a->Flush());
    EXPECT_EQ(FailedSends(bridge->GetHost().GetProcess().Errors()), failedBefore);
  }
  // The packet costs this line and nothing else.
  void ExpectRefused(const Bytes& packet, const std::string& reason) {
    console.Restart();
    ASSERT_TRUE(Send(packet));
    ASSERT_TRUE(a->Flush());
    EXPECT_EQ(console.Text(), "Error parsing message: " + reason + "\n")
        << testing::PrintToString(packet);
  }
  // What was logged since then of a port.
  std::vector<std::string> NewLogLines(const std::string& before, const std::string& port) {
    auto texts = TextsOf(LinesOf(bridge->GetDesk().Log().substr(before.size())));
    std::erase_if(texts, [&](const std::string& text) { return !text.starts_with(port); });
    return texts;
  }

  OscPort witness{*a};
  std::size_t failedBefore = 0;
  inline static std::uint32_t threads = 0;  // of the host before the first port was opened
};

TEST_F(OscHardship, AHostThatIsNoAddressReceivesNothingAndIsHeard) {
  std::size_t failures = 0;
  for (const std::string host : {"nowhere", "", "127.0.0.256", "127.0.0.1.1", "\xE4", "::1"}) {
    a->App().Record().Clear();
    const std::uint16_t bind = FreeUdpPort();
    const UdpProgram program;
    const std::string bindKey = host + std::to_string(bind);
    ASSERT_TRUE(Send(CreatePacket(9, bind, host)));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 1));
    EXPECT_EQ(FramesTo(a->App(), kReportAddress).at(0), ReportFrame(bindKey, 1));
    ASSERT_TRUE(Send(DataPacket(host + "9", Text("lost"))));
    EXPECT_TRUE(WaitForFailedSends(++failures)) << host;
    program.Send(bind, Text("heard"));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 1));
    EXPECT_EQ(FramesTo(a->App(), "/osc").at(0), DataFrame(bindKey, Text("heard")));
    ASSERT_TRUE(Send(RemovePacket(9, bind, host)));
    ASSERT_TRUE(WaitForUdpSockets(bind, 0));
  }
  ExpectEnded(failures);
}

TEST_F(OscHardship, SendsThatTheSystemRefusesAreTold) {
  const std::uint16_t bind = FreeUdpPort();
  ASSERT_TRUE(Send(CreatePacket(0, bind, kLoopback)));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 2));
  ASSERT_TRUE(Send(DataPacket("127.0.0.10", Text("to number 0"))));
  EXPECT_TRUE(WaitForFailedSends(1));
  ASSERT_TRUE(Send(DataPacket(witness.DestinationKey(), Bytes(kLongestDatagram + 1))));
  EXPECT_TRUE(WaitForFailedSends(2));
  ASSERT_TRUE(Send(DataPacket(witness.DestinationKey(), Bytes(131000))));
  EXPECT_TRUE(WaitForFailedSends(3));
  ASSERT_TRUE(Send(RemovePacket(0, 0, kLoopback)));
  ExpectEnded(1);
}

TEST_F(OscHardship, AHostOfAHundredThousandBytesHasNoReportAndIsHeard) {
  const std::string host(100000, 'x');
  const std::string log = bridge->GetDesk().Log();
  const std::uint16_t bind = FreeUdpPort();
  const std::string bindKey = host + std::to_string(bind);
  const UdpProgram program;
  a->App().Record().Clear();
  ASSERT_TRUE(Send(CreatePacket(9, bind, host)));
  ASSERT_TRUE(WaitForUdpSockets(bind, 1));
  program.Send(bind, Text("fits"));
  program.Send(bind, Bytes(kLongestDatagram));  // no frame can carry it beside the key
  program.Send(bind, Text("fits too"));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 2));
  const std::vector<Bytes> expected{DataFrame(bindKey, Text("fits")),
                                    DataFrame(bindKey, Text("fits too"))};
  EXPECT_TRUE(FramesTo(a->App(), "/osc") == expected);
  ASSERT_TRUE(Send(DataPacket(host + "9", Text("lost"))));
  EXPECT_TRUE(WaitForFailedSends(1));
  ASSERT_TRUE(Send(RemovePacket(9, bind, host)));
  ASSERT_TRUE(WaitForUdpSockets(bind, 0));
  ExpectEnded(1);
  EXPECT_THAT(FramesTo(a->App(), kReportAddress), IsEmpty());
  const std::string name = "DEBUG OSC port " + std::to_string(bind);
  EXPECT_THAT(NewLogLines(log, "DEBUG OSC port "),
              ElementsAre(name + ": its key is too long to be reported",
                          name + ": 1 datagrams were too long for a frame"));
}

TEST_F(OscHardship, TheLongestKeyThatAReportCarries) {
  constexpr std::size_t kReportRoom = 4096 - 28 - 4 - 4;  // beside address, type tags and status
  for (const bool fits : {true, false}) {
    a->App().Record().Clear();
    const std::uint16_t bind = FreeUdpPort();
    const UdpProgram program;
    const std::string number = std::to_string(bind);
    const std::string host(kReportRoom - number.size() - (fits ? 1 : 0), 'x');
    ASSERT_TRUE(Send(CreatePacket(9, bind, host)));
    ASSERT_TRUE(WaitForUdpSockets(bind, 1));
    program.Send(bind, Text("after the report"));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 1));
    const auto reports = FramesTo(a->App(), kReportAddress);
    ASSERT_THAT(reports, SizeIs(fits ? 1 : 0));
    if (fits) {
      EXPECT_EQ(reports[0], ReportFrame(host + number, 1));
    }
    ASSERT_TRUE(Send(RemovePacket(9, bind, host)));
    ASSERT_TRUE(WaitForUdpSockets(bind, 0));
  }
  ExpectEnded(2);
}

TEST_F(OscHardship, MissingAndWrongArgumentsCostOneLineEach) {
  const std::uint16_t bind = FreeUdpPort();
  const auto refuse = [&](const char* address, std::vector<device::OscArgument> arguments,
                          const std::string& reason) {
    ExpectRefused(device::EncodeMessage({address, "", std::move(arguments)}), reason);
  };
  const std::string missing = "missing argument";
  const std::string wrong = "wrong argument type";
  const std::int32_t number = witness.Program().Port();
  const std::string host = kLoopback;
  for (const char* address : {"/osc/create_port", "/osc/remove_port"}) {
    refuse(address, {}, missing);
    refuse(address, {number}, missing);
    refuse(address, {number, std::int32_t{bind}}, missing);
    refuse(address, {1.0F, std::int32_t{bind}, host}, wrong);
    refuse(address, {number, std::int64_t{bind}, host}, wrong);
    refuse(address, {number, std::int32_t{bind}, std::int32_t{1}}, wrong);
    refuse(address, {number, std::int32_t{bind}, Text(host)}, wrong);
  }
  refuse(kReportAddress, {}, missing);
  refuse(kReportAddress, {witness.DestinationKey()}, missing);
  refuse(kReportAddress, {std::int32_t{1}, std::int32_t{1}}, wrong);
  refuse(kReportAddress, {witness.DestinationKey(), 1.0}, wrong);
  refuse("/osc", {}, missing);
  refuse("/osc", {witness.DestinationKey()}, missing);
  refuse("/osc", {std::int32_t{1}, Text("data")}, wrong);
  refuse("/osc", {witness.DestinationKey(), std::string("data")}, wrong);
  refuse("/osc", {witness.DestinationKey(), true}, wrong);
  EXPECT_THAT(UdpSocketsOn(bind), IsEmpty());
  ExpectNoFailedSend();
}

TEST_F(OscHardship, BlobsThatLieCostOneLineEachAndSendNothing) {
  const Bytes start = Joined({OscText("/osc"), OscText(",sb"), OscText(witness.DestinationKey())});
  for (const std::uint64_t claimed : {5u, 65507u, 131072u, 0x7FFFFFFCu}) {
    ExpectRefused(Joined({start, BigEndian(claimed, 4), {1, 2, 3, 4}}),
                  "arguments exceed message size");
  }
  for (const std::uint64_t claimed : {0x80000000u, 0xFFFFFFFFu}) {
    ExpectRefused(Joined({start, BigEndian(claimed, 4), {1, 2, 3, 4}}), "invalid blob size");
  }
  ExpectRefused(start, "arguments exceed message size");
  ExpectRefused(Joined({OscText("/osc"), OscText(",sb"), Text("keys")}),
                "unterminated string argument");
  // One byte less than the blob's share of the packet is no lie.
  ASSERT_TRUE(Send(Joined({start, BigEndian(3u, 4), {1, 2, 3, 0}})));
  EXPECT_EQ(witness.Program().Receive(), (Bytes{1, 2, 3}));
  EXPECT_EQ(witness.Program().Receive(std::chrono::milliseconds(0)), std::nullopt);
}

TEST_F(OscHardship, UnknownKeysAddressesAndReportsAreSilent) {
  const std::int32_t number = witness.Program().Port();
  const std::uint16_t bind = FreeUdpPort();
  for (const char* address : {"/osc/create", "/osc/create_portx", "/osc/Create_port", "/osc/other",
                              "/osc/", "/oscx", "osc/create_port"}) {
    ASSERT_TRUE(Send(device::EncodeMessage(
        {address, "", {number + 1, std::int32_t{bind}, std::string(kLoopback)}})));
  }
  ASSERT_TRUE(Send(DataPacket("", Text("lost"))));
  ASSERT_TRUE(Send(DataPacket(kLoopback, Text("lost"))));
  ASSERT_TRUE(Send(DataPacket(witness.DestinationKey() + "0", Text("lost"))));
  for (const std::string& key : {witness.DestinationKey(), std::string("unknown")}) {
    for (const std::int32_t status : {0, 1, 3, -1}) {
      ASSERT_TRUE(Send(device::EncodeMessage({kReportAddress, "", {key, status}})));
    }
  }
  ASSERT_TRUE(a->Flush());
  EXPECT_EQ(console.Text(), "");
  EXPECT_THAT(UdpSocketsOn(bind), IsEmpty());
  EXPECT_EQ(witness.Program().Receive(std::chrono::milliseconds(0)), std::nullopt);
  ExpectNoFailedSend();
}

TEST_F(OscHardship, APortWhoseNumberIsTakenStillSendsFromLoopback) {
  UdpProgram holder;
  UdpProgram program;
  const std::string destinationKey = kLoopback + std::to_string(program.Port());
  const std::string bindKey = kLoopback + std::to_string(holder.Port());
  a->App().Record().Clear();
  ASSERT_TRUE(Send(CreatePacket(program.Port(), holder.Port(), kLoopback)));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 1));
  EXPECT_EQ(FramesTo(a->App(), kReportAddress).at(0), ReportFrame(bindKey, 1));
  ASSERT_TRUE(Send(DataPacket(destinationKey, Text("arrives"))));
  EXPECT_EQ(program.Receive(), Text("arrives"));
  const std::uint16_t sender = program.LastSender();
  EXPECT_NE(sender, holder.Port());
  EXPECT_EQ(UdpSocketOn(sender).address, kLoopback);
  // What is sent to the number is its holder's.
  program.Send(holder.Port(), Text("for the holder"));
  EXPECT_EQ(holder.Receive(), Text("for the holder"));
  EXPECT_THAT(DatagramsOf(*a, bindKey), IsEmpty());

  ASSERT_TRUE(Send(RemovePacket(program.Port(), holder.Port(), kLoopback)));
  ASSERT_TRUE(WaitForUdpSockets(sender, 0));
  ExpectEnded(1);
}

TEST_F(OscHardship, TwoDevicesWantTheSameNumber) {
  const UdpProgram& stranger = witness.Program();
  UdpProgram program;
  ASSERT_TRUE(b->App().SendPacket(CreatePacket(program.Port(), witness.Bind(), kLoopback)));
  ASSERT_TRUE(WaitForMessagesTo(b->App(), kReportAddress, 1));
  ASSERT_TRUE(
      b->App().SendPacket(DataPacket(kLoopback + std::to_string(program.Port()), Text("b"))));
  EXPECT_EQ(program.Receive(), Text("b"));
  stranger.Send(witness.Bind(), Text("first come"));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 1));
  EXPECT_THAT(FramesTo(b->App(), "/osc"), IsEmpty());
  ASSERT_TRUE(b->App().SendPacket(RemovePacket(program.Port(), 0, kLoopback)));
  ExpectEnded(1);
  b->App().Record().Clear();
}

TEST_F(OscHardship, SendsToAClosedPortCostNothing) {
  const std::uint16_t closed = FreeUdpPort();
  const std::uint16_t bind = FreeUdpPort();
  const UdpProgram stranger;
  const std::string destinationKey = kLoopback + std::to_string(closed);
  const std::string bindKey = kLoopback + std::to_string(bind);
  ASSERT_TRUE(Send(CreatePacket(closed, bind, kLoopback)));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 2));
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(Send(DataPacket(destinationKey, Text("nobody"))));
  ASSERT_TRUE(a->Flush());
  stranger.Send(bind, Text("goes on"));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 1));
  EXPECT_THAT(DatagramsOf(*a, bindKey), ElementsAre(Text("goes on")));
  // A program that comes late has all that is sent from then on.
  UdpProgram late(closed);
  ASSERT_TRUE(Send(DataPacket(destinationKey, Text("somebody"))));
  EXPECT_EQ(late.Receive(), Text("somebody"));
  ExpectNoFailedSend();
  ASSERT_TRUE(Send(RemovePacket(closed, bind, kLoopback)));
  ExpectEnded(1);
}

}  // namespace
}  // namespace corvalint::windows_test
