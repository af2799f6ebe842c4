// The messages with which a device drives its loopback OSC ports, on its stream.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ports/desktop_names.h"
#include "support/fake_virtual_midi.h"
#include "support/osc_port_fixture.h"
#include "support/test_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using namespace test;

const char kMissing[] = "Error parsing message: missing argument\n";
const char kWrongType[] = "Error parsing message: wrong argument type\n";

std::string PortMessage(const std::string& address, std::int32_t destinationPort,
                        std::int32_t bindPort, const std::string& host = "127.0.0.1") {
  return OscMessage(address, "iis", OscInt32(destinationPort) + OscInt32(bindPort) + OscText(host));
}

class OscPortMessages : public testing::Test {
 protected:
  OscPortMessages() : peer(client.Prepare()) { client.OpenNow(); }
  ~OscPortMessages() override {
    client.ReleasePorts();
    threads.JoinAll();
    EXPECT_EQ(threads.OpenHandles(), 0u);
  }

  void Take(const std::string& packet) {
    client.ProcessPacket(packet.data(), packet.size(), RemoteEndpoint{0, 23451});
  }
  // The message costs that line, no port changes, and the next message works.
  void ExpectLine(const std::string& packet, const std::string& line) {
    const std::size_t before = client.Ports().Count();
    Take(packet);
    EXPECT_EQ(console.Take(), line) << packet;
    EXPECT_EQ(client.Ports().Count(), before) << packet;
    ExpectAnswer();
  }
  void ExpectAnswer() {
    Take(OscMessage("/init_timing", "h", OscInt64(0)));
    EXPECT_EQ(peer->ReceiveFrame().substr(0, 12), OscText("/init_timing").substr(0, 12));
  }
  void Create() {
    Take(PortMessage("/osc/create_port", program.Port(), number));
    EXPECT_EQ(peer->ReceiveFrame(), PortReport(Key(number), 1));
  }
  std::shared_ptr<LocalOSCPort> Port() { return client.Ports().Find(Key(program.Port())); }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  FakeVirtualMidi driver;
  ScriptedDatagrams datagrams;
  TrackedThreads threads;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  TestClient client{server, manager};
  std::unique_ptr<StreamPeer> peer;
  UdpProgram program;
  const std::uint16_t number = FreeUdpPort();
};

// --- each message

TEST_F(OscPortMessages, APortIsCreatedWithTheDestinationFirst) {
  Create();
  ASSERT_NE(Port(), nullptr);
  EXPECT_EQ(Port()->BindKey(), Key(number));
  EXPECT_EQ(StateOfSocket(datagrams.Opened().front()).port, number);
  EXPECT_TRUE(Port()->fresh);
}

TEST_F(OscPortMessages, ASecondCreateClearsTheFreshFlagAndSendsNothing) {
  Create();
  Take(PortMessage("/osc/create_port", program.Port(), FreeUdpPort()));
  EXPECT_FALSE(Port()->fresh);
  ExpectAnswer();  // and no report before it
  EXPECT_EQ(client.Ports().Count(), 1u);
}

TEST_F(OscPortMessages, APortIsRemovedWhateverBindPortTheDeviceNames) {
  Create();
  Take(PortMessage("/osc/remove_port", program.Port(), 1));
  EXPECT_EQ(client.Ports().Count(), 0u);
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
}

TEST_F(OscPortMessages, AnUnknownPortIsRemovedInSilence) {
  Create();
  ExpectLine(PortMessage("/osc/remove_port", number, number), "");
  ExpectLine(PortMessage("/osc/remove_port", program.Port(), number, "127.0.0.2"), "");
  EXPECT_TRUE(Port()->Running());
}

TEST_F(OscPortMessages, TheDevicesReportIsKept) {
  Create();
  EXPECT_EQ(Port()->reportedStatus, 0u);
  ExpectLine(
      OscMessage("/osc/port_creation_report", "si", OscText(Key(program.Port())) + OscInt32(-5)),
      "");
  EXPECT_EQ(Port()->reportedStatus, static_cast<std::uint32_t>(-5));
  ExpectLine(OscMessage("/osc/port_creation_report", "si", OscText(Key(number)) + OscInt32(7)), "");
  EXPECT_EQ(Port()->reportedStatus, static_cast<std::uint32_t>(-5));  // by its bind key: unknown
  EXPECT_EQ(Port()->status, 1u);
}

TEST_F(OscPortMessages, DataGoesToTheDestinationOfItsKey) {
  Create();
  for (const std::size_t size : {0u, 1u, 1400u, 65507u}) {
    const std::string bytes(size, 'd');
    Take(PortData(Key(program.Port()), bytes));
    EXPECT_EQ(program.Receive(), bytes) << size;
  }
}

TEST_F(OscPortMessages, DataForUnknownKeysGoesNowhereInSilence) {
  Create();
  testing::internal::CaptureStderr();
  ExpectLine(PortData(Key(number), "by its bind key"), "");
  ExpectLine(PortData("", "nobody"), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(program.Silent());
}

TEST_F(OscPortMessages, DataThatFitsNoDatagramCostsALineOnStandardError) {
  Create();
  testing::internal::CaptureStderr();
  ExpectLine(PortData(Key(program.Port()), std::string(65508, 'x')), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "sendto() failed\n");
}

TEST_F(OscPortMessages, ADatagramGoesToTheDeviceUnderTheBindKey) {
  Create();
  for (const std::size_t size : {0u, 1u, 1400u, 65507u}) {
    const std::string bytes(size, 'u');
    program.Send(number, bytes);
    EXPECT_EQ(peer->ReceiveFrame(), PortData(Key(number), bytes)) << size;
  }
}

// --- addresses

TEST_F(OscPortMessages, OnlyTheWholeAddressCounts) {
  Create();
  const std::string data = OscText(Key(program.Port())) + OscBlobBytes("x");
  for (const char* address : {"/oscx", "/osc/", "/osc/other", "/os", "/OSC", "osc"}) {
    ExpectLine(OscMessage(address, "sb", data), "");
  }
  for (const char* address : {"/osc/remove_ports", "/osc/remove_por", "/osc/remove_port/"}) {
    ExpectLine(PortMessage(address, program.Port(), number), "");
  }
  for (const char* address : {"/osc/create_port2", "/osc/create_"}) {
    ExpectLine(PortMessage(address, 7000, FreeUdpPort()), "");
  }
  ExpectLine(
      OscMessage("/osc/port_creation_reports", "si", OscText(Key(program.Port())) + OscInt32(5)),
      "");
  EXPECT_EQ(Port()->reportedStatus, 0u);
  EXPECT_TRUE(program.Silent());
}

TEST_F(OscPortMessages, WorkInABundleInTheirOrder) {
  Take(OscBundle(
      1, {PortMessage("/osc/create_port", program.Port(), number),
          PortMessage("/osc/remove_port", program.Port(), number), OscMessage("/osc", "", ""),
          PortMessage("/osc/create_port", program.Port(), number)}));
  EXPECT_EQ(client.Ports().Count(), 1u);
  EXPECT_NE(console.Take().find(kMissing), std::string::npos);
  while (Port()->status != 1) std::this_thread::yield();
  Take(PortData(Key(program.Port()), "there"));
  EXPECT_EQ(program.Receive(), "there");
}

// --- arguments

TEST_F(OscPortMessages, MissingArgumentsCostALineAndNothingElse) {
  Create();
  const std::string number32 = OscInt32(program.Port());
  const std::string key = OscText(Key(program.Port()));
  for (const char* address : {"/osc/create_port", "/osc/remove_port"}) {
    ExpectLine(OscMessage(address, "", ""), kMissing);
    ExpectLine(OscText(address), kMissing);  // without type tags
    ExpectLine(OscMessage(address, "i", number32), kMissing);
    ExpectLine(OscMessage(address, "ii", number32 + number32), kMissing);
  }
  ExpectLine(OscMessage("/osc/port_creation_report", "", ""), kMissing);
  ExpectLine(OscText("/osc/port_creation_report"), kMissing);
  ExpectLine(OscMessage("/osc/port_creation_report", "s", key), kMissing);
  ExpectLine(OscMessage("/osc", "", ""), kMissing);
  ExpectLine(OscText("/osc"), kMissing);
  ExpectLine(OscMessage("/osc", "s", key), kMissing);
  EXPECT_TRUE(program.Silent());
}

TEST_F(OscPortMessages, ArgumentsOfAnotherTypeCostALineAndNothingElse) {
  Create();
  const std::string word = OscInt32(program.Port());
  const std::string key = OscText(Key(program.Port()));
  for (const char* address : {"/osc/create_port", "/osc/remove_port"}) {
    ExpectLine(OscMessage(address, "fis", word + word + key), kWrongType);
    ExpectLine(OscMessage(address, "iTs", word + key), kWrongType);
    ExpectLine(OscMessage(address, "iii", word + word + word), kWrongType);
    ExpectLine(OscMessage(address, "his", OscInt64(1) + word + key), kWrongType);
  }
  ExpectLine(OscMessage("/osc/port_creation_report", "ii", word + word), kWrongType);
  ExpectLine(OscMessage("/osc/port_creation_report", "sf", key + word), kWrongType);
  ExpectLine(OscMessage("/osc", "ib", word + OscBlobBytes("x")), kWrongType);
  ExpectLine(OscMessage("/osc", "ss", key + OscText("x")), kWrongType);
  ExpectLine(OscMessage("/osc", "si", key + word), kWrongType);
  EXPECT_EQ(Port()->reportedStatus, 0u);
  EXPECT_TRUE(program.Silent());
}

TEST_F(OscPortMessages, ABlobThatLiesAboutItsSizeCostsALineAndNothingElse) {
  Create();
  const std::string key = OscText(Key(program.Port()));
  for (const std::uint32_t size : {5u, 64u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    const std::string packet = OscMessage("/osc", "sb", key + OscInt32(size) + OscPadded("four"));
    const std::string frame = FrameOf(packet);
    // On the stream, where packets that cannot be read are told of.
    const auto lying = client.Prepare();
    lying->Send(frame + FrameOf(PortData(Key(program.Port()), "next")));
    lying->EndSending();
    client.CloseStream();
    client.RunToTheEnd();
    EXPECT_EQ(program.Receive(), "next") << size;
    const std::string text = console.Take();
    EXPECT_EQ(text.substr(0, 23), "Error parsing message: ") << text;
  }
  EXPECT_TRUE(program.Silent());
}

TEST_F(OscPortMessages, NumbersMayBeWrittenAsText) {
  const std::string destination = OscText(std::to_string(program.Port()));
  Take(OscMessage(
      "/osc/create_port", "sss",
      destination + OscText(" +" + std::to_string(number) + "x") + OscText("127.0.0.1")));
  EXPECT_EQ(peer->ReceiveFrame(), PortReport(Key(number), 1));
  Take(OscMessage("/osc/port_creation_report", "ss", OscText(Key(program.Port())) + OscText("12")));
  EXPECT_EQ(Port()->reportedStatus, 12u);
  Take(OscMessage("/osc/remove_port", "sss",
                  destination + OscText("whatever") + OscText("127.0.0.1")));
  EXPECT_EQ(client.Ports().Count(), 0u);
}

TEST_F(OscPortMessages, FurtherArgumentsAreNotLookedAt) {
  Take(OscMessage("/osc/create_port", "iisT",
                  OscInt32(program.Port()) + OscInt32(number) + OscText("127.0.0.1")));
  EXPECT_EQ(peer->ReceiveFrame(), PortReport(Key(number), 1));
  Take(
      OscMessage("/osc", "sbi", OscText(Key(program.Port())) + OscBlobBytes("data") + OscInt32(1)));
  EXPECT_EQ(program.Receive(), "data");
  EXPECT_EQ(console.Take(), "");
}

TEST_F(OscPortMessages, AGiantHostDisturbsNobody) {
  const std::string host(100000, 'h');
  Take(PortMessage("/osc/create_port", 7000, number, host));
  const auto port = client.Ports().Find(host + "7000");
  ASSERT_NE(port, nullptr);
  while (port->status != 1) std::this_thread::yield();
  ExpectAnswer();  // no report before it
  program.Send(number, "small");
  EXPECT_EQ(peer->ReceiveFrame(), PortData(host + std::to_string(number), "small"));
  testing::internal::CaptureStderr();
  Take(PortData(host + "7000", "nowhere"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "sendto() failed\n");
  Take(PortMessage("/osc/remove_port", 7000, number, host));
  EXPECT_EQ(client.Ports().Count(), 0u);
}

TEST_F(OscPortMessages, DoNothingWithoutATable) {
  Create();
  client.ReleasePorts();
  Take(PortMessage("/osc/create_port", 7000, FreeUdpPort()));
  Take(PortMessage("/osc/remove_port", 7000, 1));
  Take(OscMessage("/osc/port_creation_report", "si", OscText("key") + OscInt32(1)));
  Take(PortData(Key(program.Port()), "x"));
  ExpectAnswer();
  EXPECT_TRUE(program.Silent());
  EXPECT_EQ(threads.Made(), 1);
}

}  // namespace
}  // namespace corvalint
