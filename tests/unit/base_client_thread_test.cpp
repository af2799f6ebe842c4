// A client's run: the frames of its streams, its connections and its life.
#include "protocol/base_client_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/base_client_thread_fixture.h"
#include "support/osc_bytes.h"

namespace corvalint {
namespace {

using namespace test;

using Sleeps = std::vector<std::uint32_t>;

// A client that opens nothing, as the base has it.
class PlainClient final : public BaseClientThread {
 public:
  using BaseClientThread::BaseClientThread;
  ~PlainClient() override = default;
  std::uint32_t RunUntilStopped() {
    running = true;
    return Run();
  }
  using BaseClientThread::Connect;
  using BaseClientThread::Finalize;
  using BaseClientThread::PerformDisconnect;
};

TEST_F(BaseClientThreadTest, FramesAreReadOneAfterTheOther) {
  RunOver(MessageFrame("/a") + MessageFrame("/b") + MessageFrame("/longer/address"));
  EXPECT_EQ(addresses, (Lines{"/a", "/b", "/longer/address"}));
  EXPECT_EQ(console.Take(), kEnd);
}

TEST_F(BaseClientThreadTest, EveryPacketComesWithTheDevicesEndpoint) {
  client.SetEndpoint({0, 23451});
  client.recorder = [this](const std::string& address, const RemoteEndpoint& endpoint) {
    addresses.push_back(address + " from " + std::to_string(endpoint.address) + ":" +
                        std::to_string(endpoint.port));
  };
  RunOver(MessageFrame("/a") + FrameOf(OscBundle(1, {OscMessage("/b", "", "")})));
  EXPECT_EQ(addresses, (Lines{"/a from 0:23451", "/b from 0:23451"}));
}

TEST_F(BaseClientThreadTest, ABurstOfSmallFramesCostsOneReceive) {
  RunOver(MessageFrame("/a") + MessageFrame("/b") + MessageFrame("/c"));
  EXPECT_EQ(addresses.size(), 3u);
  EXPECT_EQ(sockets.Receives(), 2);  // the frames, the end
}

TEST_F(BaseClientThreadTest, FramesThatComeByteByByteArePutTogether) {
  sockets.ReceiveAtMost(1);
  RunOver(MessageFrame("/a") + MessageFrame("/b"));
  EXPECT_EQ(addresses, (Lines{"/a", "/b"}));
  EXPECT_EQ(console.Take(), kEnd);
}

TEST_F(BaseClientThreadTest, FramesThatAreCutAnywhereArePutTogether) {
  const std::string bytes = MessageFrame("/a") + FrameOf("dropped", 7) + MessageFrame("/b");
  for (int most = 2; most < static_cast<int>(bytes.size()); ++most) {
    addresses.clear();
    sockets.ReceiveAtMost(most);
    RunOver(bytes);
    EXPECT_EQ(addresses, (Lines{"/a", "/b"})) << "in pieces of " << most;
  }
}

TEST_F(BaseClientThreadTest, FramesOfAnotherKindAreDroppedInSilence) {
  const std::string payload = OscMessage("/no", "", "");
  RunOver(FrameOf(payload, 1) + FrameOf(payload, 0) + FrameOf(payload, 3) +
          FrameOf(payload, 0x02000000) + FrameOf("not OSC", 1) + MessageFrame("/yes"));
  EXPECT_EQ(addresses, (Lines{"/yes"}));
  EXPECT_EQ(console.Take(), kEnd);
}

TEST_F(BaseClientThreadTest, TheTagIsIgnored) {
  RunOver(FrameOf(OscMessage("/a", "", ""), 2, 0) + FrameOf(OscMessage("/b", "", ""), 2, 99));
  EXPECT_EQ(addresses, (Lines{"/a", "/b"}));
}

TEST_F(BaseClientThreadTest, ThePayloadNeedNotBeAMultipleOfFour) {
  RunOver(FrameOf("xyz") + MessageFrame("/a"));
  EXPECT_EQ(addresses, (Lines{"/a"}));
  const std::string text = console.Take();
  EXPECT_EQ(text.rfind("Error parsing message: ", 0), 0u) << text;
  EXPECT_EQ(text.substr(text.find('\n') + 1), kEnd);
}

TEST_F(BaseClientThreadTest, AFrameOf131072BytesIsAccepted) {
  const std::string head = OscText("/large") + OscText(",b");
  const std::string large = head + OscBlobBytes(std::string(131072 - head.size() - 4, 'x'));
  ASSERT_EQ(large.size(), 131072u);
  const auto peer = client.Prepare();
  std::thread sender([&] {
    peer->Send(FrameOf(large) + MessageFrame("/a"));
    peer->EndSending();
  });
  client.RunToTheEnd();
  sender.join();
  EXPECT_EQ(addresses, (Lines{"/large", "/a"}));
  EXPECT_EQ(console.Take(), kEnd);
}

// What follows on the old stream is not read any more; the next stream starts at a frame.
TEST_F(BaseClientThreadTest, AnInvalidLengthEndsTheStreamWithoutFurtherReading) {
  const auto first = client.Prepare();
  const auto second = client.Prepare();
  const auto third = client.Prepare();
  const auto fourth = client.Prepare();
  first->Send(MessageFrame("/a") + OscInt32(0) + MessageFrame("/lost"));
  second->Send(OscInt32(131073) + MessageFrame("/lost"));
  third->Send(OscInt32(-1) + MessageFrame("/lost"));
  fourth->Send(MessageFrame("/b"));
  fourth->EndSending();
  client.RunToTheEnd();
  EXPECT_EQ(addresses, (Lines{"/a", "/b"}));
  EXPECT_EQ(console.Take(),
            "Invalid packet length 0\nInvalid packet length 131073\nInvalid packet length -1\n"
            "Server disconnected: 0\nFinished\n");
  EXPECT_EQ(client.disconnects, 4);
  EXPECT_TRUE(first->Ended());
}

TEST_F(BaseClientThreadTest, AnEndInsideAFrameDropsTheFrame) {
  const std::string frame = MessageFrame("/a");
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    RunOver(frame.substr(0, cut));
    EXPECT_EQ(console.Take(), kEnd) << "after " << cut << " bytes";
  }
  EXPECT_TRUE(addresses.empty());
}

TEST_F(BaseClientThreadTest, ABrokenStreamIsReportedAsMinusOne) {
  const auto peer = client.Prepare();
  peer->Send(MessageFrame("/a"));
  sockets.ReceiveErrors({SocketError::other});
  client.RunToTheEnd();
  EXPECT_EQ(console.Take(), "Server disconnected: -1\nFinished\n");
  EXPECT_EQ(client.disconnects, 1);
}

TEST_F(BaseClientThreadTest, AStreamThatIsResetIsReportedAsMinusOne) {
  const auto peer = client.Prepare();
  sockets.BeforeWait([&] { peer->Reset(); });
  client.RunToTheEnd();
  EXPECT_EQ(console.Take(), "Server disconnected: -1\nFinished\n");
}

TEST_F(BaseClientThreadTest, ALostStreamIsReplaced) {
  const auto first = client.Prepare();
  const auto second = client.Prepare();
  first->Send(MessageFrame("/a"));
  first->EndSending();
  second->Send(MessageFrame("/b"));
  second->EndSending();
  client.RunToTheEnd();
  EXPECT_EQ(addresses, (Lines{"/a", "/b"}));
  EXPECT_EQ(client.connects, 3);
  EXPECT_EQ(client.disconnects, 2);
  EXPECT_EQ(console.Take(), "Server disconnected: 0\nServer disconnected: 0\nFinished\n");
}

TEST_F(BaseClientThreadTest, AFailedConnectionIsTriedAgainAfterFiveSeconds) {
  PlainClient plain(server, manager);
  int sleeps = 0;
  clock.WhenSleeping([&](std::uint32_t) {
    if (++sleeps == 3) plain.Stop();
  });
  EXPECT_EQ(plain.RunUntilStopped(), 0u);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000, 5000}));
  EXPECT_EQ(console.Take(), "Finished\n");
}

TEST_F(BaseClientThreadTest, TheBaseConnectsToNothing) {
  PlainClient plain(server, manager);
  EXPECT_FALSE(plain.Connect());
  plain.PerformDisconnect();
  EXPECT_EQ(plain.Finalize(), 0u);
  EXPECT_FALSE(plain.Running());
  EXPECT_EQ(console.Take(), "");
}

TEST_F(BaseClientThreadTest, TheRunReturnsWhatFinalizeReturns) {
  client.result = 42;
  EXPECT_EQ(client.RunToTheEnd(), 42u);
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(log.Lines(), (Lines{"DEBUG BaseClientThread created", "DEBUG Finished"}));
}

// The bytes are taken as they stand, on purpose: here they are a whole message and zeroes.
TEST_F(BaseClientThreadTest, AStopInsideAFrameIsNoError) {
  const auto peer = client.Prepare();
  peer->Send(OscInt32(16) + OscInt32(2) + OscInt32(2) + OscMessage("/half", "", "").substr(0, 12));
  sockets.BeforeReceive([&] { client.ClearRunning(); });
  client.RunToTheEnd();
  EXPECT_EQ(addresses, (Lines{"/half"}));
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(client.disconnects, 0);
}

// Frames smaller and larger than what is received at once, in streams that come in pieces of any
// size: each one is found where the one before it ended.
TEST_F(BaseClientThreadTest, FramesOfAllSizesFollowEachOther) {
  std::string bytes;
  Lines sent;
  const std::vector<std::size_t> sizes = {4,     65536, 4,     131072, 131072, 12,   65524,
                                          65528, 65580, 65580, 65580,  400,    1100, 131060};
  for (const std::size_t size : sizes) {
    // A message without type tags: its address takes the whole of it, no two places alike.
    std::string address = "/" + std::to_string(sent.size());
    while (address.size() < size - 1) address += "." + std::to_string(address.size());
    address.resize(size - 1);
    bytes += FrameOf(address + '\0');
    sent.push_back(address);
  }
  for (const int most : {1 << 30, 65536, 65535, 4099, 100}) {
    sockets.ReceiveAtMost(most);
    const auto peer = client.Prepare();
    std::thread sender([&] {
      peer->Send(bytes);
      peer->EndSending();
    });
    client.RunToTheEnd();
    sender.join();
    EXPECT_TRUE(addresses == sent) << most;
    EXPECT_EQ(console.Take(), kEnd);
    addresses.clear();
  }
}

TEST_F(BaseClientThreadTest, AFailureToConnectIsLoggedAndTriedAgain) {
  const auto peer = client.Prepare();
  peer->Send(MessageFrame("/a"));
  peer->EndSending();
  bool thrown = false;
  client.whenConnecting = [&] {
    if (!std::exchange(thrown, true)) throw std::runtime_error("no memory");
  };
  client.RunToTheEnd();
  EXPECT_EQ(addresses, (Lines{"/a"}));
  EXPECT_EQ(log.Count("ERROR device connection failed: no memory"), 1);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));  // after the failure; at the end
  EXPECT_EQ(console.Take(), kEnd);
}

// --- life

TEST_F(BaseClientThreadTest, SendFramedSendsAFrame) {
  const auto peer = client.Prepare();
  client.OpenNow();
  EXPECT_EQ(client.SendFramed("data", 4), 16);
  EXPECT_EQ(peer->Receive(16), FrameOf("data"));
}

TEST_F(BaseClientThreadTest, SendFramedWithoutAStreamGivesMinusOne) {
  EXPECT_EQ(client.SendFramed("data", 4), -1);
}

TEST_F(BaseClientThreadTest, TheOwnerIsTheDevicesManager) { EXPECT_EQ(&client.Owner(), &manager); }

TEST_F(BaseClientThreadTest, AFreshClientIsDestroyedAtOnce) {
  { const PlainClient plain(server, manager); }
  EXPECT_EQ(log.Lines(), (Lines{"DEBUG BaseClientThread created", "DEBUG BaseClientThread created",
                                "DEBUG ~BaseClientThread"}));
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
}

TEST_F(BaseClientThreadTest, TheDestructorWaitsForADisconnectInProgress) {
  auto other = std::make_unique<TestClient>(server, manager);
  std::atomic<std::int32_t>& disconnected = other->Disconnected();
  disconnected = 0;
  int polls = 0;
  clock.WhenSleeping([&](std::uint32_t) {
    EXPECT_EQ(log.Lines().back(), "DEBUG ~BaseClientThread");
    if (++polls == 3) disconnected = 1;
  });
  other.reset();
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{10, 10, 10}));
}

TEST_F(BaseClientThreadTest, StopClearsTheRunningFlagOnly) {
  PlainClient plain(server, manager);
  plain.BaseClientThread::Stop();
  EXPECT_FALSE(plain.Running());
  EXPECT_EQ(console.Take(), "");
}

}  // namespace
}  // namespace corvalint
