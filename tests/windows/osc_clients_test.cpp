// OSC programs that are not ours talk with a device through the shipped DLL: not a byte changes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "windows/support/osc_two_devices.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using testing::ElementsAre;

class OscClients : public OscTwoDevices {
 protected:
  void SetUp() override {
    OscTwoDevices::SetUp();
    ASSERT_TRUE(port.Create());
    a->App().Record().Clear();
  }
  void TearDown() override {
    console.Restart();
    EXPECT_TRUE(port.Remove());
    ExpectEnded(1);
  }

  // Runs `oscsend` with these words behind the number that it sends to.
  static void RunOscSend(std::uint16_t to, const std::vector<std::string>& words) {
    std::vector<std::string> command{"oscsend", kLoopback, std::to_string(to)};
    command.insert(command.end(), words.begin(), words.end());
    harness::Process process({.command = command, .environment = {}, .directory = {}});
    ASSERT_EQ(process.WaitForExit(), 0) << process.Output() << process.Errors();
  }

  // A program that sends straight to another one, for comparison.
  UdpProgram direct;
  OscPort port{*a};
};

// What the packets of a message spell, without the time at the beginning of each line.
std::vector<std::string> WithoutTimes(const std::string& printed) {
  std::vector<std::string> lines;
  std::istringstream text(printed);
  for (std::string line; std::getline(text, line);)
    lines.push_back(line.substr(line.find(' ') + 1));
  return lines;
}

// The messages of the next test, in a packet each and once more in a bundle within a bundle.
const Bytes kFloats =
    Joined({OscText("/mixer/fader"), OscText(",ff"), {0x3F, 0xC0, 0, 0}, {0xC0, 0x20, 0, 0}});
const Bytes kTexts = Joined({OscText("/name"), OscText(",ss"), OscText("one two"), OscText("")});
const Bytes kBlob = Joined(
    {OscText("/data"), OscText(",b"), {0, 0, 0, 5}, {0x10, 0x2F, 0x7F, 0xFE, 0xFF}, {0, 0, 0}});
const Bytes kMixed = Joined({OscText("/mixed"),
                             OscText(",ihTFNIcm"),
                             {0xFF, 0xFF, 0xFF, 0xFE},
                             BigEndian(std::int64_t{5000000000}),
                             {0, 0, 0, 'x'},
                             {0, 0x90, 60, 1}});
const Bytes kBundle =
    device::EncodeBundle({kFloats, device::EncodeBundle({kBlob, kTexts}), kMixed});

TEST_F(OscClients, WhatOscSendSendsArrivesAsTheSameBytes) {
  const std::vector<std::vector<std::string>> commands{
      {"/mixer/fader", "f", "0.75"},
      {"/mixer/faders", "fff", "0.1", "1e30", "3.25"},
      {"/name", "s", "one two"},
      {"/name", "sS", "", "symbol"},
      {"/long", "s", std::string(9000, 'x')},
      {"/mixed", "ihfdscmTFNI", "7", "5000000000", "2.5", "0.1", "text", "x", "00903c40"},
      {"/nothing"},
  };
  for (const auto& command : commands) {
    a->App().Record().Clear();
    ASSERT_NO_FATAL_FAILURE(RunOscSend(direct.Port(), command));
    const auto sent = direct.Receive();
    ASSERT_TRUE(sent.has_value());
    ASSERT_NO_FATAL_FAILURE(RunOscSend(port.Bind(), command));
    ASSERT_TRUE(WaitForMessagesTo(a->App(), "/osc", 1));
    EXPECT_THAT(FramesTo(a->App(), "/osc"), ElementsAre(DataFrame(port.BindKey(), *sent)));
  }
}

TEST_F(OscClients, ABlobAndBundlesArriveAsTheSameBytes) {
  for (const Bytes& packet : {kBlob, kBundle, device::EncodeBundle({})}) {
    a->App().Record().Clear();
    ASSERT_TRUE(port.ToDevice(packet));
    EXPECT_THAT(FramesTo(a->App(), "/osc"), ElementsAre(DataFrame(port.BindKey(), packet)));
  }
}

TEST_F(OscClients, WhatADeviceSendsIsWhatOscDumpPrints) {
  const std::uint16_t number = FreeUdpPort();
  const std::uint16_t bind = FreeUdpPort();
  harness::Process dump(
      {.command = {"oscdump", "-L", std::to_string(number)}, .environment = {}, .directory = {}});
  ASSERT_TRUE(WaitForUdpSockets(number, 1)) << dump.Errors();
  ASSERT_TRUE(Send(CreatePacket(number, bind, kLoopback)));
  ASSERT_TRUE(WaitForMessagesTo(a->App(), kReportAddress, 1));
  const std::string key = kLoopback + std::to_string(number);

  const std::vector<std::string> expected{
      "/mixer/fader ff 1.500000 -2.500000",
      "/name ss \"one two\" \"\"",
      "/data b [5b 0x10 0x2f 0x7f 0xfe 0xff]",
      "/mixed ihTFNIcm -2 5000000000 #T #F Nil Infinitum 'x' MIDI [0x00 0x90 0x3c 0x01]",
      "/mixer/fader ff 1.500000 -2.500000",
      "/data b [5b 0x10 0x2f 0x7f 0xfe 0xff]",
      "/name ss \"one two\" \"\"",
      "/mixed ihTFNIcm -2 5000000000 #T #F Nil Infinitum 'x' MIDI [0x00 0x90 0x3c 0x01]",
      "/end ",
  };
  const Bytes end = Joined({OscText("/end"), OscText(",")});
  for (const Bytes& packet : {kFloats, kTexts, kBlob, kMixed, kBundle, end}) {
    ASSERT_TRUE(Send(DataPacket(key, packet)));
  }
  EXPECT_TRUE(dump.WaitForOutput(
      [](const std::string& printed) { return printed.find("/end \n") != std::string::npos; }));
  EXPECT_EQ(WithoutTimes(dump.Output()), expected);
  ASSERT_TRUE(Send(RemovePacket(number, bind, kLoopback)));
  ExpectEnded(1);
}

}  // namespace
}  // namespace corvalint::windows_test
