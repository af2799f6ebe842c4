// The loopback OSC ports of a device that loses its stream, leaves, or is destroyed.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/osc_port_fixture.h"
#include "support/usb_client_fixture.h"

namespace corvalint {
namespace {

using namespace test;

std::string CreateMessage(std::int32_t destinationPort, std::uint16_t bindPort) {
  return OscMessage("/osc/create_port", "iis",
                    OscInt32(destinationPort) + OscInt32(bindPort) + OscText("127.0.0.1"));
}

class UsbClientPorts : public UsbClientFixture {
 protected:
  // The client's threads, and its ports', must be gone before the datagram sockets are.
  ~UsbClientPorts() override { threads.JoinAll(); }

  // A port of the device that has told that it is ready.
  void Open(StreamPeer& peer, std::int32_t destinationPort, std::uint16_t bindPort) {
    peer.SendFrame(CreateMessage(destinationPort, bindPort));
    EXPECT_EQ(peer.ReceiveFrame(), PortReport(Key(bindPort), 1));
  }

  ScriptedDatagrams datagrams;
  UdpProgram program;
  const std::uint16_t first = FreeUdpPort();
  const std::uint16_t second = FreeUdpPort();
  const std::uint16_t third = FreeUdpPort();
};

TEST_F(UsbClientPorts, ALostStreamRemovesThePortsFromTheLastToTheFirst) {
  const auto peer = StartThread();
  Open(*peer, 7001, first);
  Open(*peer, 7002, second);
  Open(*peer, 7003, third);
  peer->EndSending();
  const auto next = library.NextStream(device);
  ExpectAnnounced(*next, {});
  const std::vector<int> made = datagrams.Wakers();
  EXPECT_EQ(datagrams.Woken(), std::vector<int>(made.rbegin(), made.rend()));
  // The next connection begins without ports, and may have the same ones.
  Open(*next, 7001, first);
  Open(*next, 7002, second);
  program.Send(first, "again");
  EXPECT_EQ(next->ReceiveFrame(), PortData(Key(first), "again"));
  Depart();
}

TEST_F(UsbClientPorts, PortsAreRemovedUnderTheClientLockAfterTheStreamIsClosed) {
  const auto peer = StartThread();
  Open(*peer, 7001, first);
  std::atomic<bool> portThere{false};
  std::atomic<bool> underLock{false};
  sockets.BeforeShutdown([&] { portThere = datagrams.Woken().empty(); });
  datagrams.BeforeWake([&] {
    if (server.clientLock.HoldsOfThisThread() > 0) underLock = true;
  });
  Depart();
  EXPECT_TRUE(portThere);
  EXPECT_TRUE(underLock);
  EXPECT_FALSE(datagrams.Woken().empty());
  threads.JoinAll();
  // Told again, at most, by the thread that was still making it when the departure came.
  const std::vector<int> woken = datagrams.Woken();
  EXPECT_EQ(std::set<int>(woken.begin(), woken.end()).size(), 1u);
  EXPECT_EQ(datagrams.OpenNow(), 0u);
}

TEST_F(UsbClientPorts, ADepartureEndsPortsThatHearNothing) {
  const UdpProgram taken;
  const auto peer = StartThread();
  Open(*peer, 7001, taken.Port());
  Open(*peer, 7002, second);
  Depart();
  threads.JoinAll();
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_EQ(datagrams.WakersOpenNow(), 0);
}

// The frame was read before the stop, which comes while its first port gets a thread.
TEST_F(UsbClientPorts, ACreateAlreadyReadAfterAStopMakesNoPort) {
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  ASSERT_TRUE(client->gate.TryBorrow());
  threads.WhenMaking([this] { client->Stop(); });
  peer->SendFrame(OscBundle(1, {CreateMessage(7001, first), CreateMessage(7002, second)}));
  EXPECT_TRUE(peer->Ended());
  while (log.Count("DEBUG UsbClientThread::Finalize()") == 0) std::this_thread::yield();
  EXPECT_EQ(threads.Made(), 2);  // the client's, and that of the first port
  server.clients.Remove(*client);
  client->gate.Return();
  threads.JoinAll();
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_LE(datagrams.Opened().size(), 1u);
}

// One that was read after its stream was lost, though not stopped, ends with the client.
TEST_F(UsbClientPorts, APortThatOpensAfterItsStreamIsLostEndsWithTheClient) {
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {});
  std::atomic<bool> lost{false};
  library.PortAnswers({10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10});
  clock.WhenSleeping([&](std::uint32_t milliseconds) {
    if (milliseconds == 5000 && !lost.exchange(true)) Depart();
  });
  peer->SendFrame(CreateMessage(7001, first));
  peer->EndSending();
  threads.JoinAll();
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_EQ(datagrams.WakersOpenNow(), 0);
}

// Under a desktop program that never pauses; a sanitizer sees who touches a freed client.
TEST_F(UsbClientPorts, NoPortOutlivesItsClient) {
  const auto peer = StartThread();
  Open(*peer, 7001, first);
  Open(*peer, 7002, second);
  std::atomic<bool> ends{false};
  std::vector<std::thread> desktop;
  for (const std::uint16_t port : {first, second}) {
    desktop.emplace_back([&ends, port] {
      const UdpProgram streams;
      while (!ends) streams.Send(port, "stream");
    });
  }
  for (int i = 0; i < 20; ++i) peer->ReceiveFrame();
  Depart();
  threads.JoinAll();
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 1);
  ends = true;
  for (std::thread& each : desktop) each.join();
}

}  // namespace
}  // namespace corvalint
