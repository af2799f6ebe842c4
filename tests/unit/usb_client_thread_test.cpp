#include "usb/usb_client_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/usb_client_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Lines = std::vector<std::string>;
using Sleeps = std::vector<std::uint32_t>;

class UsbClientThreadTest : public UsbClientFixture {};

const Lines kMade = {"DEBUG BaseClientThread created", "DEBUG UsbClientThread()"};
const Lines kStopped = {"DEBUG UsbClientThreadMidi::Stop()",
                        "DEBUG UsbClientThread::PerformDisconnect()"};
const Lines kEnded = {"DEBUG Finished",
                      "DEBUG UsbClientThread::Finalize()",
                      "DEBUG UsbClientThreadMidi::Stop()",
                      "DEBUG UsbClientThread::PerformDisconnect()",
                      "DEBUG ~UsbClientThread",
                      "DEBUG ~BaseClientThread"};
const char kEndedText[] = "Finished\nUsbClientThread::PerformDisconnect()\n";

Lines Joined(std::vector<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST_F(UsbClientThreadTest, ItsPacketsComeFromNoAddressAndTheDevicesPort) {
  EXPECT_EQ(client->Endpoint().address, 0u);
  EXPECT_EQ(client->Endpoint().port, 23451);
  Depart();
  client->Finalize();
}

// --- connecting

TEST_F(UsbClientThreadTest, ADeviceThatCannotBeConnectedIsTriedAgain) {
  library.ConnectAnswers(device, {0xE800000F, 0xE800000F});
  DepartAtSleep(2);
  RunHere();
  const Lines attempt = {"DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0xe800000f",
                         "ERROR AMDeviceConnect = -402653169", "DEBUG Device handle=0"};
  EXPECT_EQ(log.Lines(), Joined({kMade, attempt, attempt, kStopped, kEnded}));
  const std::string text =
      "Connecting to device...\nAMDeviceConnect() = 0xe800000f\nAMDeviceConnect = -402653169\n";
  EXPECT_EQ(console.Take(), text + text + "UsbClientThread::PerformDisconnect()\n" + kEndedText);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(library.TakeCalls(), (Lines{"AMDeviceConnect(pad)", "AMDeviceConnect(pad)",
                                        "AMDeviceDisconnect(pad)", "AMDeviceDisconnect(pad)"}));
}

TEST_F(UsbClientThreadTest, ADeviceInRecoveryModeIsNeverConnected) {
  library.ConnectAnswers(device, {0xE8000028, 0xE8000028});
  DepartAtSleep(4);
  RunHere();
  const Lines attempt = {"DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0xe8000028",
                         "DEBUG muxConnTmp = AB", "DEBUG Device handle=0"};
  EXPECT_EQ(log.Lines(), Joined({kMade, attempt, attempt, kStopped, kEnded}));
  const std::string text =
      "Connecting to device...\nAMDeviceConnect() = 0xe8000028\n"
      "found iDevice in Recovery Mode - muxConnTmp = AB\n";
  EXPECT_EQ(console.Take(), text + text + "UsbClientThread::PerformDisconnect()\n" + kEndedText);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000, 5000, 5000}));
  EXPECT_EQ(library.Count("USBMuxConnectByPort"), 0);
}

TEST_F(UsbClientThreadTest, OneFailureIsTreatedAsAUsableConnection) {
  library.ConnectAnswers(device, {0xE8000065});
  library.PortAnswers({10});
  DepartAtSleep(1);
  RunHere();
  EXPECT_EQ(log.Lines(),
            Joined({kMade,
                    {"DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0xe8000065",
                     "DEBUG muxConnTmp = AB", "DEBUG Device handle=171", "DEBUG Opening port...",
                     "ERROR USBMuxConnectByPort = a, handle=beef"},
                    kStopped,
                    kEnded}));
  EXPECT_EQ(console.Take(),
            "Connecting to device...\nAMDeviceConnect() = 0xe8000065\nmuxConnTmp = AB\n"
            "UsbClientThread::PerformDisconnect()\n" +
                std::string(kEndedText));
}

TEST_F(UsbClientThreadTest, AConnectedDeviceWithoutANumberIsTriedAgain) {
  library.SetConnectionId(device, 0);
  DepartAtSleep(2);
  RunHere();
  const Lines attempt = {"DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0x0",
                         "DEBUG Device handle=0"};
  EXPECT_EQ(log.Lines(), Joined({kMade, attempt, attempt, kStopped, kEnded}));
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(library.Count("USBMuxConnectByPort"), 0);
}

TEST_F(UsbClientThreadTest, ARefusedPortIsTriedAgainWithTheKnownId) {
  library.PortAnswers({10, 11});
  DepartAtSleep(2);
  RunHere();
  EXPECT_EQ(log.Lines(),
            Joined({kMade,
                    {"DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0x0",
                     "DEBUG Device handle=171", "DEBUG Opening port...",
                     "ERROR USBMuxConnectByPort = a, handle=beef", "DEBUG Device handle=171",
                     "DEBUG Opening port...", "ERROR USBMuxConnectByPort = b, handle=beef"},
                    kStopped,
                    kEnded}));
  EXPECT_EQ(library.TakeCalls(),
            (Lines{"AMDeviceConnect(pad)", "AMDeviceGetConnectionID(pad)",
                   "USBMuxConnectByPort(171, 5B9B)", "USBMuxConnectByPort(171, 5B9B)",
                   "AMDeviceDisconnect(pad)", "AMDeviceDisconnect(pad)"}));
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(sockets.Closed(), std::vector<int>{});  // what a failed call stored is no socket
}

// 0 means no stream everywhere here, so the port is tried again.
TEST_F(UsbClientThreadTest, AnOpenPortWithoutASocketIsARefusedOne) {
  library.PortSockets({0, -1});
  DepartAtSleep(2);
  RunHere();
  EXPECT_EQ(log.Count("ERROR USBMuxConnectByPort = 0, handle=0"), 1);
  EXPECT_EQ(log.Count("ERROR USBMuxConnectByPort = 0, handle=ffffffff"), 1);
  EXPECT_EQ(log.Count("INFO USBMuxConnectByPort OK"), 0);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(sockets.Closed(), std::vector<int>{});
}

TEST_F(UsbClientThreadTest, AStreamThatWouldBlockIsClosedAndThePortTriedAgain) {
  sockets.RefuseNonBlocking();
  DepartAtSleep(1);
  RunHere();
  EXPECT_EQ(log.Count("ERROR the stream to the device would block"), 1);
  EXPECT_EQ(log.Count("INFO USBMuxConnectByPort OK"), 0);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000}));
  ASSERT_EQ(sockets.NonBlocking().size(), 1u);
  EXPECT_EQ(sockets.Closed(), sockets.NonBlocking());
}

TEST_F(UsbClientThreadTest, AnOpenPortIsMadeNonBlockingAndStays) {
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  EXPECT_EQ(sockets.NonBlocking().size(), 1u);
  EXPECT_EQ(sockets.NoDelay(), sockets.NonBlocking());
  EXPECT_EQ(log.Lines(), Joined({kMade,
                                 {"DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0x0",
                                  "DEBUG Device handle=171", "DEBUG Opening port...",
                                  "INFO USBMuxConnectByPort OK"}}));
  ExpectAnnounced(*peer, {});  // a second frame needs no second connection
  EXPECT_EQ(library.TakeCalls(), (Lines{"AMDeviceConnect(pad)", "AMDeviceGetConnectionID(pad)",
                                        "USBMuxConnectByPort(171, 5B9B)"}));
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
  Depart();
}

// Its calls may wait for its notifications, and a departure takes the bridge's locks.
TEST_F(UsbClientThreadTest, TheDeviceLibraryIsCalledWithNoLockHeld) {
  std::atomic<int> calls{0};
  std::atomic<std::uint32_t> holds{0};
  for (const char* function : {"AMDeviceConnect", "AMDeviceGetConnectionID", "USBMuxConnectByPort",
                               "AMDeviceDisconnect"}) {
    library.WhenCalled(function, [&] {
      ++calls;
      holds += server.clientLock.HoldsOfThisThread() + server.Lock().HoldsOfThisThread() +
               GetMidiEndpointRegistry().deviceLock.HoldsOfThisThread();
    });
  }
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  Depart();
  threads.JoinAll();
  EXPECT_EQ(calls, 5);  // a device is disconnected twice
  EXPECT_EQ(holds, 0u);
}

TEST_F(UsbClientThreadTest, TheDeviceIsDisconnectedAfterTheStopAndOnceMoreAtTheEnd) {
  library.PortAnswers({10});
  Lines before;
  library.WhenCalled("AMDeviceDisconnect", [&] { before.push_back(log.Lines().back()); });
  DepartAtSleep(1);
  RunHere();
  EXPECT_EQ(before,
            (Lines{"DEBUG UsbClientThread::PerformDisconnect()", "DEBUG ~UsbClientThread"}));
}

// A sender that holds a lock must not block in a send.
TEST_F(UsbClientThreadTest, NobodySendsUntilTheStreamCannotBlock) {
  int sent = 0;
  sockets.BeforeNonBlocking([&] { sent = client->SendFramed("early", 5); });
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  EXPECT_EQ(sent, -1);
  Depart();
}

TEST_F(UsbClientThreadTest, ALostStreamIsReplacedWithoutConnectingTheDeviceAgain) {
  AddSource("Keys", 1);
  const auto first = StartThread();
  ExpectAnnounced(*first, {EndpointMessage("/add_remote_source", "Keys", 1)});
  library.TakeCalls();
  console.Take();
  first->EndSending();
  const auto second = library.NextStream(device);
  ExpectAnnounced(*second, {EndpointMessage("/add_remote_source", "Keys", 1)});
  EXPECT_TRUE(first->Ended());
  EXPECT_EQ(library.TakeCalls(), (Lines{"USBMuxConnectByPort(171, 5B9B)"}));
  EXPECT_EQ(console.Take(), "Server disconnected: 0\nUsbClientThread::PerformDisconnect()\n");
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{1000}));
  Depart();
}

TEST_F(UsbClientThreadTest, AnInvalidLengthReplacesTheStream) {
  const auto first = StartThread();
  first->Send(OscInt32(131073));
  const auto second = library.NextStream(device);
  ExpectAnnounced(*second, {});
  Depart();
  threads.JoinAll();
  const std::string text = console.Take();
  EXPECT_NE(text.find("Invalid packet length 131073\nUsbClientThread::PerformDisconnect()\n"),
            std::string::npos)
      << text;
}

// --- the end

TEST_F(UsbClientThreadTest, AStopEndsTheBlockedRun) {
  std::promise<void> waiting;
  int waits = 0;
  sockets.BeforeWait([&] {
    if (++waits == 2) waiting.set_value();
  });
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  waiting.get_future().wait();  // for a second frame
  console.Take();
  const Lines before = log.Lines();
  Depart();
  threads.JoinAll();
  EXPECT_TRUE(peer->Ended());
  EXPECT_EQ(sockets.Closed(), sockets.NonBlocking());
  const std::string text = console.Take();
  EXPECT_NE(text.find("Server disconnected: -1\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Finished\n"), std::string::npos) << text;
  Lines lines = log.Lines();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before.size()));
  // The client's thread, having lost its stream, disconnects for itself as well.
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "DEBUG UsbClientThread::PerformDisconnect()"),
            3);
  EXPECT_EQ(lines.front(), "DEBUG UsbClientThreadMidi::Stop()");
  EXPECT_EQ(lines.back(), "DEBUG ~BaseClientThread");
  EXPECT_EQ(library.Count("AMDeviceDisconnect"), 2);
}

// The senders that hold it find the stream open until they are through.
TEST_F(UsbClientThreadTest, TheStreamIsClosedWithTheClientLockHeld) {
  std::atomic<std::uint32_t> holds{9};
  sockets.BeforeShutdown([&] { holds = server.clientLock.HoldsOfThisThread(); });
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  Depart();
  EXPECT_EQ(holds, 1u);
}

// A second without the lock that the senders want.
TEST_F(UsbClientThreadTest, TheSecondAfterADisconnectHoldsNoLock) {
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  std::atomic<int> seconds{0};
  clock.WhenSleeping([&](std::uint32_t milliseconds) {
    if (milliseconds != 1000) return;
    ++seconds;
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  });
  Depart();
  threads.JoinAll();
  EXPECT_EQ(seconds, 1);
}

// Nobody may find a freed client in the list or under an operation.
TEST_F(UsbClientThreadTest, TheClientLivesUntilItIsUnlistedAndNotBorrowed) {
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  ASSERT_TRUE(client->gate.TryBorrow());
  client->Stop();
  EXPECT_TRUE(clock.WaitForSleeps(4));  // a second, and some polls of the waiting end
  EXPECT_EQ(log.Count("DEBUG UsbClientThread::Finalize()"), 1);
  EXPECT_EQ(library.Count("AMDeviceDisconnect"), 1);  // not put off until the end
  EXPECT_EQ(client->SendFramed("late", 4), -1);
  EXPECT_FALSE(client->gate.TryBorrow());
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 0);
  server.clients.Remove(*client);
  EXPECT_TRUE(clock.WaitForSleeps(400));
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 0);
  client->gate.Return();
  threads.JoinAll();
  const Sleeps all = clock.TakeSleeps();
  EXPECT_EQ(std::count(all.begin(), all.end(), 1000u), 1);  // of the stop
  EXPECT_EQ(std::count(all.begin(), all.end(), 10u), static_cast<int>(all.size()) - 1);
}

TEST_F(UsbClientThreadTest, AListedClientIsNotFreed) {
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  ASSERT_TRUE(client->gate.TryBorrow());
  client->Stop();
  client->gate.Return();
  EXPECT_TRUE(clock.WaitForSleeps(400));
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 0);
  EXPECT_TRUE(server.clients.Contains(*client));
  server.clients.Remove(*client);
  threads.JoinAll();
}

TEST_F(UsbClientThreadTest, AStreamThatOpensAfterAStopIsClosedAgain) {
  AddSource("Keys", 1);
  library.WhenCalled("USBMuxConnectByPort", [this] { Depart(); });
  RunHere();
  const auto peer = library.NextStream(device);
  EXPECT_TRUE(peer->Ended());
  EXPECT_EQ(sockets.Sends(), std::vector<int>{});  // nothing was announced
  EXPECT_EQ(sockets.Closed(), sockets.NonBlocking());
  EXPECT_EQ(sockets.Closed().size(), 1u);
}

TEST_F(UsbClientThreadTest, AFrameThatIsBeingWrittenWhenTheStreamIsLostHarmsNobody) {
  const auto first = StartThread();
  ExpectAnnounced(*first, {});
  std::atomic<bool> ends{false};
  std::vector<std::thread> senders;
  for (int i = 0; i < 2; ++i) {
    senders.emplace_back([this, &ends] {
      const std::uint8_t note[] = {0x90, 0x3C, 0x7F};
      while (!ends) server.SendMidiToAll(note, 3, "Piano", 1, 5);
    });
  }
  for (int round = 0; round < 5; ++round) {
    const auto next = round == 0 ? nullptr : library.NextStream(device);
    StreamPeer& peer = next == nullptr ? *first : *next;
    EXPECT_EQ(peer.ReceiveFrame(), MidiMessage("Piano", 1, 5, "\x90\x3C\x7F"));
    peer.Reset();
  }
  Depart();
  ends = true;
  for (std::thread& sender : senders) sender.join();
}

}  // namespace
}  // namespace corvalint
