// The loopback OSC ports of the shipped DLL: what each of their four messages does, byte for byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "windows/support/osc_two_devices.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class OscPorts : public OscTwoDevices {};

TEST_F(OscPorts, APortListensOnLoopbackAloneAndReportsItselfByItsBindKey) {
  OscPort port(*a);
  ASSERT_TRUE(port.Create());
  EXPECT_THAT(FramesTo(a->App(), kReportAddress), ElementsAre(ReportFrame(port.BindKey(), 1)));
  EXPECT_EQ(UdpSocketOn(port.Bind()).address, kLoopback);
  EXPECT_EQ(console.Text(), "");
  ASSERT_TRUE(port.Remove());
  ExpectEnded(1);
  EXPECT_THAT(b->App().Record().AllMessages(), IsEmpty());
}

TEST_F(OscPorts, DatagramsGoBothWaysUnderTheTwoKeys) {
  OscPort port(*a);
  ASSERT_TRUE(port.Create());
  const Bytes question = Text("anything at all");
  ASSERT_TRUE(port.ToDevice(question));
  EXPECT_THAT(FramesTo(a->App(), "/osc"), ElementsAre(DataFrame(port.BindKey(), question)));

  // The device names the port by its destination: the bind key is no name for it.
  ASSERT_TRUE(Send(DataPacket(port.BindKey(), Text("lost"))));
  ASSERT_TRUE(port.ToProgram(Text("kept")));
  EXPECT_EQ(port.Program().LastSender(), port.Bind());

  // Nobody else is told of it, and another device does not reach it.
  ASSERT_TRUE(b->App().SendPacket(DataPacket(port.DestinationKey(), Text("stranger"))));
  ASSERT_TRUE(b->Flush());
  ASSERT_TRUE(port.ToProgram(Text("own")));
  EXPECT_THAT(FramesTo(b->App(), "/osc"), IsEmpty());
  ASSERT_TRUE(port.Remove());
  ExpectEnded(1);
}

TEST_F(OscPorts, ASecondCreateOfTheSameKeysSendsNothing) {
  OscPort port(*a);
  const std::uint16_t otherBind = FreeUdpPort();
  const std::uint16_t otherDestination = FreeUdpPort();
  ASSERT_TRUE(port.Create());
  ASSERT_TRUE(Send(CreatePacket(port.Program().Port(), port.Bind(), kLoopback)));
  ASSERT_TRUE(Send(CreatePacket(port.Program().Port(), otherBind, kLoopback)));
  ASSERT_TRUE(Send(CreatePacket(otherDestination, port.Bind(), kLoopback)));
  ASSERT_TRUE(a->Flush());
  ASSERT_TRUE(port.ToProgram(Text("still")));
  ASSERT_TRUE(port.ToDevice(Text("there")));
  EXPECT_THAT(UdpSocketsOn(otherBind), IsEmpty());
  EXPECT_TRUE(WaitForUdpSockets(port.Bind(), 1));
  EXPECT_THAT(FramesTo(a->App(), kReportAddress), SizeIs(1));
  ASSERT_TRUE(port.Remove());
  ExpectEnded(1);
}

TEST_F(OscPorts, KeysThatReadAlikeAreOnePort) {
  // 127.0.0.1 with 9000 and 127.0.0.1900 with 0 spell the same.
  const std::uint16_t first = FreeUdpPort();
  const std::uint16_t second = FreeUdpPort();
  ASSERT_TRUE(Send(CreatePacket(9000, first, kLoopback)));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 1));
  ASSERT_TRUE(Send(CreatePacket(0, second, "127.0.0.1900")));
  ASSERT_TRUE(a->Flush());
  EXPECT_THAT(UdpSocketsOn(second), IsEmpty());
  ASSERT_TRUE(Send(RemovePacket(0, -1, "127.0.0.1900")));
  ASSERT_TRUE(WaitForUdpSockets(first, 0));
  ExpectEnded(1);
  EXPECT_THAT(FramesTo(a->App(), kReportAddress), SizeIs(1));
}

TEST_F(OscPorts, RemoveLooksAtTheDestinationKeyAlone) {
  OscPort port(*a);
  ASSERT_TRUE(port.Create());
  const std::uint16_t number = port.Program().Port();
  ASSERT_TRUE(Send(RemovePacket(port.Bind(), number, kLoopback)));
  ASSERT_TRUE(Send(RemovePacket(number, port.Bind(), "127.0.0.2")));
  ASSERT_TRUE(Send(RemovePacket(number, port.Bind(), "")));
  ASSERT_TRUE(port.ToProgram(Text("still there")));
  ASSERT_TRUE(Send(RemovePacket(number, 12345, kLoopback)));
  ASSERT_TRUE(WaitForUdpSockets(port.Bind(), 0));
  // It is gone for both sides; a second remove finds nothing.
  ASSERT_TRUE(Send(RemovePacket(number, port.Bind(), kLoopback)));
  ASSERT_TRUE(Send(DataPacket(port.DestinationKey(), Text("too late"))));
  ASSERT_TRUE(a->Flush());
  EXPECT_EQ(port.Program().Receive(std::chrono::milliseconds(0)), std::nullopt);
  port.Program().Send(port.Bind(), Text("too late"));
  ASSERT_TRUE(a->Flush());
  EXPECT_THAT(FramesTo(a->App(), "/osc"), IsEmpty());
  ExpectEnded(1);
}

TEST_F(OscPorts, ANumberIsUsedAgainAtOnceAHundredTimes) {
  constexpr std::uint8_t kTimes = 100;
  OscPort port(*a);
  const Bytes remove = RemovePacket(port.Program().Port(), port.Bind(), kLoopback);
  const Bytes create = CreatePacket(port.Program().Port(), port.Bind(), kLoopback);
  ASSERT_TRUE(port.Create());
  for (std::uint8_t i = 0; i < kTimes; ++i) {
    device::FrameBatch again;
    again.AddPacket(remove);
    again.AddPacket(create);
    ASSERT_TRUE(a->App().SendBatch(again));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, i + 2u));
    ASSERT_TRUE(port.ToDevice({i, 1})) << int{i};
    ASSERT_TRUE(port.ToProgram({i, 2})) << int{i};
    ASSERT_EQ(port.Program().LastSender(), port.Bind());
  }
  ASSERT_TRUE(port.Remove());
  ExpectEnded(kTimes + 1u);
}

// A socket that has no number yet would get one of all networks by its first send.
TEST_F(OscPorts, APortHasItsNumberWhateverItsDeviceSendsMeanwhile) {
  constexpr std::size_t kRounds = 20;
  constexpr std::size_t kPortsEach = 20;
  constexpr int kSendsEach = 200;
  OscPort port(*a);
  device::FrameBatch batch;
  for (std::size_t i = 0; i < kPortsEach; ++i) {
    if (i > 0) batch.AddPacket(port.RemoveRequest());
    batch.AddPacket(port.CreateRequest());
    for (int send = 0; send < kSendsEach; ++send) {
      batch.AddPacket(DataPacket(port.DestinationKey(), Text("early")));
    }
  }
  for (std::size_t round = 0; round < kRounds; ++round) {
    a->App().Record().Clear();
    ASSERT_TRUE(a->App().SendBatch(batch));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, kPortsEach));
    ASSERT_TRUE(a->Flush());
    while (port.Program().Receive(std::chrono::milliseconds(0))) {
      ASSERT_EQ(port.Program().LastSender(), port.Bind()) << round;
    }
    ASSERT_EQ(UdpSocketOn(port.Bind()).address, kLoopback) << round;
    ASSERT_TRUE(port.ToDevice(Text("heard"))) << round;
    ASSERT_TRUE(port.Remove()) << round;
  }
  ExpectEnded(kRounds * kPortsEach);
}

TEST_F(OscPorts, NumbersBeyondSixteenBitsKeepTheirKeysAndLoseTheirHighBits) {
  for (const std::int32_t high : {65536, -65536, 0x7FFF0000}) {
    a->App().Record().Clear();
    UdpProgram program;
    const std::int32_t destination = high + program.Port();
    const std::int32_t bind = high + FreeUdpPort();
    const std::string bindKey = kLoopback + std::to_string(bind);
    ASSERT_TRUE(Send(CreatePacket(destination, bind, kLoopback)));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 1));
    EXPECT_EQ(FramesTo(a->App(), kReportAddress).at(0), ReportFrame(bindKey, 1));
    ASSERT_TRUE(Send(DataPacket(kLoopback + std::to_string(destination), Text("down"))));
    EXPECT_EQ(program.Receive(), Text("down"));
    program.Send(static_cast<std::uint16_t>(bind), Text("up"));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 1));
    EXPECT_EQ(FramesTo(a->App(), "/osc").at(0), DataFrame(bindKey, Text("up")));
    ASSERT_TRUE(Send(RemovePacket(destination, 0, kLoopback)));
    ASSERT_TRUE(WaitForUdpSockets(static_cast<std::uint16_t>(bind), 0));
  }
  ExpectEnded(3);
}

TEST_F(OscPorts, NumbersMayBeDecimalText) {
  UdpProgram program;
  const std::uint16_t bind = FreeUdpPort();
  const std::string destination = std::to_string(program.Port());
  ASSERT_TRUE(Send(device::EncodeMessage(
      {"/osc/create_port", "", {destination, std::to_string(bind), std::string(kLoopback)}})));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 1));
  ASSERT_TRUE(Send(DataPacket(kLoopback + destination, Text("heard"))));
  EXPECT_EQ(program.Receive(), Text("heard"));
  ASSERT_TRUE(Send(device::EncodeMessage(
      {"/osc/remove_port", "", {destination, std::string("x"), std::string(kLoopback)}})));
  ASSERT_TRUE(WaitForUdpSockets(bind, 0));
  ExpectEnded(1);
}

TEST_F(OscPorts, TheShortestAndTheLongestDatagramPassBothWays) {
  OscPort port(*a);
  ASSERT_TRUE(port.Create());
  const Bytes longest = CountingBytes(kLongestDatagram);
  ASSERT_TRUE(port.ToDevice({}));
  ASSERT_TRUE(port.ToDevice(longest));
  const std::vector<Bytes> expected{DataFrame(port.BindKey(), {}),
                                    DataFrame(port.BindKey(), longest)};
  EXPECT_TRUE(FramesTo(a->App(), "/osc") == expected);
  ASSERT_TRUE(port.ToProgram({}));
  ASSERT_TRUE(port.ToProgram(longest));
  ASSERT_TRUE(port.Remove());
  ExpectEnded(1);
}

}  // namespace
}  // namespace corvalint::windows_test
