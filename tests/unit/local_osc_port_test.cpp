#include "ports/local_osc_port.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/osc_port_fixture.h"

namespace corvalint {
namespace {

using namespace test;

const char kSendFailed[] = "sendto() failed\n";

// What goes to standard error while it lives.
class ErrorCapture {
 public:
  ErrorCapture() { testing::internal::CaptureStderr(); }
  ~ErrorCapture() {
    if (!taken) testing::internal::GetCapturedStderr();
  }
  std::string Take() {
    taken = true;
    return testing::internal::GetCapturedStderr();
  }

 private:
  bool taken = false;
};

class LocalOSCPortTest : public OscPortFixture {
 protected:
  PortPointer WithHost(const std::string& host) {
    return table->CreatePort(program.Port(), number, host);
  }
  std::string SendText(LocalOSCPort& port, const std::string& bytes) {
    ErrorCapture errors;
    port.SendToDestination(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return errors.Take();
  }
};

// --- readiness

TEST_F(LocalOSCPortTest, AReadyPortIsBoundToLoopbackAloneAndSaysSoOnce) {
  const PortPointer port = Ready();
  const UdpSocketState bound = StateOfSocket(datagrams.Opened().front());
  EXPECT_EQ(bound.address, "127.0.0.1");
  EXPECT_EQ(bound.port, number);
  EXPECT_EQ(datagrams.Binds(), (std::vector<ScriptedDatagrams::Bind>{{number, 0}}));
  EXPECT_EQ(port->status, 1u);
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
  EndAll();
  EXPECT_EQ(owner.Take(), Packets{});
  EXPECT_EQ(console.Take(), "Finished\n");
}

TEST_F(LocalOSCPortTest, TheSocketIsBoundBeforeThePortSaysThatItIsReady) {
  std::string addressThen;
  owner.WhenSending([&] { addressThen = StateOfSocket(datagrams.Opened().front()).address; });
  const PortPointer port = Ready();
  EndAll();
  EXPECT_EQ(addressThen, "127.0.0.1");
}

// --- from the desktop to the device

TEST_F(LocalOSCPortTest, EachDatagramBecomesOneMessageOfTheBindKey) {
  Ready();
  for (const std::string& bytes : {std::string("/any\0\0\0\0,\0\0\0", 12), std::string("no osc"),
                                   std::string("\0", 1), std::string("#bundle")}) {
    program.Send(number, bytes);
    EXPECT_EQ(owner.Next(), PortData(Key(number), bytes));
  }
}

TEST_F(LocalOSCPortTest, AnEmptyDatagramIsAnEmptyBlob) {
  Ready();
  program.Send(number, "");
  EXPECT_EQ(owner.Next(), OscMessage("/osc", "sb", OscText(Key(number)) + OscInt32(0)));
  ExpectAlive(number, Key(number));
}

TEST_F(LocalOSCPortTest, DatagramsOfAllSizesComeWhole) {
  Ready();
  for (const std::size_t size : {1u, 2u, 3u, 4u, 5u, 1400u, 1472u, 9000u, 65506u, 65507u}) {
    const std::string bytes(size, static_cast<char>('a' + size % 26));
    program.Send(number, bytes);
    EXPECT_EQ(owner.Next(), PortData(Key(number), bytes)) << size;
  }
}

TEST_F(LocalOSCPortTest, DatagramsOfAllSendersComeInTheirOrder) {
  Ready();
  const UdpProgram other;
  for (int i = 0; i < 20; ++i) (i % 2 == 0 ? program : other).Send(number, std::to_string(i));
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(owner.Next(), PortData(Key(number), std::to_string(i)));
  }
}

// What waits already costs no further wait.
TEST_F(LocalOSCPortTest, EverythingThatWaitsIsReadAfterOneWait) {
  datagrams.BeforeWait([this] {
    if (datagrams.Waits() != 1) return;
    for (int i = 0; i < 10; ++i) program.Send(number, "x");
  });
  Ready();
  for (int i = 0; i < 10; ++i) owner.Next();
  while (datagrams.Waits() < 2) std::this_thread::yield();
  EndAll();
  EXPECT_EQ(datagrams.Waits(), 2);
}

// --- from the device to the desktop

TEST_F(LocalOSCPortTest, BytesOfAllSizesGoToTheDestination) {
  const PortPointer port = Ready();
  for (const std::size_t size : {0u, 1u, 1400u, 9000u, 65507u}) {
    const std::string bytes(size, static_cast<char>('a' + size % 26));
    EXPECT_EQ(SendText(*port, bytes), "");
    EXPECT_EQ(program.Receive(), bytes) << size;
  }
}

TEST_F(LocalOSCPortTest, BytesComeFromTheBindPort) {
  Ready(number, program.Port());
  const std::uint16_t other = FreeUdpPort();
  const PortPointer second = Ready(other, number);
  second->SendToDestination("to each other", 13);
  EXPECT_EQ(owner.Next(), PortData(Key(number), "to each other"));
}

TEST_F(LocalOSCPortTest, ADatagramThatIsTooLongCostsOneLineOnStandardError) {
  const PortPointer port = Ready();
  EXPECT_EQ(SendText(*port, std::string(65508, 'x')), kSendFailed);
  EXPECT_EQ(SendText(*port, std::string(131000, 'x')), kSendFailed);
  EXPECT_TRUE(program.Silent());
  EXPECT_EQ(SendText(*port, "still there"), "");
  EXPECT_EQ(program.Receive(), "still there");
  EXPECT_EQ(console.Take(), "");
}

TEST_F(LocalOSCPortTest, ADestinationThatTheSystemRefusesCostsOneLine) {
  EXPECT_EQ(SendText(*WithHost("255.255.255.255"), "everybody"), kSendFailed);
}

TEST_F(LocalOSCPortTest, ASendThatNobodyListensToIsNoFailure) {
  const PortPointer port = Ready(number, FreeUdpPort());
  EXPECT_EQ(SendText(*port, "nobody"), "");
  EXPECT_EQ(SendText(*port, "nobody"), "");
  ExpectAlive(number, Key(number));
}

TEST_F(LocalOSCPortTest, AStoppedPortSendsNothingAnyMore) {
  const PortPointer port = Ready();
  table->RemoveAll();
  EXPECT_EQ(SendText(*port, "late"), kSendFailed);
  threads.JoinAll();
  EXPECT_EQ(SendText(*port, "later"), kSendFailed);
  EXPECT_TRUE(program.Silent());
}

// --- hosts

TEST_F(LocalOSCPortTest, AHostThatIsNoAddressIsKeptInTheKeysAndNeverSentTo) {
  for (const char* host : {"localhost", "", "127.0.0", "0x7f000001", "\xFF\xFE", "1.2.3.4 "}) {
    const PortPointer port = WithHost(host);
    const std::string bindKey = host + std::to_string(number);
    EXPECT_EQ(owner.Next(), PortReport(bindKey, 1));
    EXPECT_EQ(port->DestinationKey(), host + std::to_string(program.Port()));
    ExpectAlive(number, bindKey);  // it listens all the same
    EXPECT_EQ(SendText(*port, "nowhere"), kSendFailed) << host;
    EXPECT_TRUE(program.Silent());
    table->RemoveAll();
  }
}

TEST_F(LocalOSCPortTest, AHostOfAllNetworksIsSentToAsItIsWritten) {
  const PortPointer port = WithHost("0.0.0.0");
  EXPECT_EQ(owner.Next(), PortReport("0.0.0.0" + std::to_string(number), 1));
  EXPECT_EQ(SendText(*port, "this machine, here"), "");
}

// The host's text is in the key, and the key in whatever the port says.
TEST_F(LocalOSCPortTest, AGiantHostCostsTheReportAndWhatFitsNoFrame) {
  const std::string host(100000, 'h');
  const std::string bindKey = host + std::to_string(number);
  const PortPointer port = WithHost(host);
  while (port->status != 1) std::this_thread::yield();
  ExpectAlive(number, bindKey);
  const std::size_t room = 131072 - OscText("/osc").size() - OscText(",sb").size() -
                           OscText(bindKey).size() - OscInt32(0).size();
  program.Send(number, std::string(room, 'f'));  // a frame to its last byte
  EXPECT_EQ(owner.Next(), PortData(bindKey, std::string(room, 'f')));
  program.Send(number, std::string(room + 1, 'x'));
  program.Send(number, std::string(65507, 'x'));
  ExpectAlive(number, bindKey);
  EXPECT_EQ(SendText(*port, "nowhere"), kSendFailed);
  EndAll();
  const std::string name = "DEBUG OSC port " + std::to_string(number) + ": ";
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{name + "its key is too long to be reported",
                                      name + "2 datagrams were too long for a frame"}));
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(owner.Take(), Packets{});
}

TEST_F(LocalOSCPortTest, AReportMayFillItsBufferToTheLastByte) {
  const std::size_t rest = PortReport("", 1).size() - OscText("").size();
  const std::size_t digits = std::to_string(number).size();
  const std::string fits(4096 - rest - 1 - digits, 'h');
  WithHost(fits);
  EXPECT_EQ(owner.Next(), PortReport(fits + std::to_string(number), 1));
  table->RemoveAll();
  const PortPointer port = WithHost(fits + 'h');
  while (port->status != 1) std::this_thread::yield();
  ExpectAlive(number, fits + 'h' + std::to_string(number));
  EXPECT_EQ(log.Count("DEBUG OSC port " + std::to_string(number) +
                      ": its key is too long to be reported"),
            1);
}

// --- stopping

TEST_F(LocalOSCPortTest, APortThatIsStoppedBeforeItRunsSaysThatItIsReadyAndEnds) {
  threads.HoldNext();
  const PortPointer port = table->CreatePort(7000, number, "127.0.0.1");
  port->Stop();
  threads.RunHeld();
  EXPECT_EQ(owner.Next(), PortReport(Key(number), 1));
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  // Its number may be another port's by then.
  EXPECT_EQ(datagrams.Binds(), std::vector<ScriptedDatagrams::Bind>{});
}

TEST_F(LocalOSCPortTest, AStopInsideACallOfTheOwnerEndsThePort) {
  const PortPointer port = Ready();
  owner.WhenSending([&] { port->Stop(); });
  program.Send(number, "the last");
  EXPECT_EQ(owner.Next(), PortData(Key(number), "the last"));
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.OpenNow(), 0u);
}

TEST_F(LocalOSCPortTest, WhatWaitsWhenThePortIsStoppedIsNotForwarded) {
  const PortPointer port = Ready();
  datagrams.BeforeReceive([&] { port->Stop(); });  // the datagram itself is read
  for (const char* bytes : {"first", "second", "third"}) program.Send(number, bytes);
  threads.JoinAll();
  EXPECT_EQ(owner.Take(), Packets{PortData(Key(number), "first")});
}

TEST_F(LocalOSCPortTest, AStopJustBeforeTheWaitEndsIt) {
  std::atomic<bool> stopped{false};
  PortPointer port;
  datagrams.BeforeWait([&] {
    if (stopped.exchange(true)) return;
    table->RemoveAll();
  });
  table->CreatePort(7000, number, "127.0.0.1");
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.Waits(), 1);
  EXPECT_EQ(datagrams.Receives(), 0);
}

TEST_F(LocalOSCPortTest, AStopWhileTheDesktopStreamsClosesNothingThatIsInUse) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> ends{false};
    const PortPointer port = Ready();
    std::thread desktop([&] {
      while (!ends) program.Send(number, "stream");
    });
    std::thread device([&] {
      ErrorCapture quiet;
      while (!ends) port->SendToDestination("stream", 6);
    });
    owner.Next();
    table->RemoveAll();
    ends = true;
    desktop.join();
    device.join();
    threads.JoinAll();
    owner.Take();
    while (!program.Silent()) program.Receive();
  }
}

}  // namespace
}  // namespace corvalint
