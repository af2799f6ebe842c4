#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/socket.h"
#include "protocol/device_stream.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/scripted_sockets.h"
#include "support/stream_peer.h"

namespace corvalint {
namespace {

using namespace test;

using Lines = std::vector<std::string>;

// A stream whose device does not read.
class DeviceStreamLosses : public testing::Test {
 protected:
  DeviceStreamLosses() { Connect(); }

  void Connect() {
    StreamPair pair = MakeStreamPair();
    SocketApi::System().setNonBlocking(pair.library);
    peer = std::move(pair.peer);
    stream->Open(pair.library);
  }
  int Send(std::size_t size) {
    const std::string payload(size, 'm');
    return stream->Send(payload.data(), static_cast<std::uint32_t>(size));
  }
  // Frames of 64 KiB; sixteen do not fit any more.
  void Overflow(int lost) {
    sockets.BlockSends();
    for (int i = 0; i < 15; ++i) ASSERT_GT(Send(65536), 0) << i;
    for (int i = 0; i < lost; ++i) ASSERT_EQ(Send(65536), -1) << i;
  }

  // The device reads again, and a sender sends all that was kept.
  void Drain() {
    sockets.SendAnswers({});
    const auto reader = std::async(std::launch::async, [this] {
      for (int i = 0; i < 15; ++i) peer->ReceiveFrame();
    });
    while (reader.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
      stream->IsCrowded();
      std::this_thread::yield();
    }
  }

  FakeClock clock;
  LogCapture log;
  ScriptedSockets sockets;
  std::unique_ptr<DeviceStream> stream = std::make_unique<DeviceStream>();
  std::unique_ptr<StreamPeer> peer;
};

TEST_F(DeviceStreamLosses, AStreamIsCrowdedWhileAQuarterOfItsRoomIsTaken) {
  EXPECT_FALSE(stream->IsCrowded());
  sockets.BlockSends();
  for (int i = 0; i < 3; ++i) Send(65536);
  EXPECT_FALSE(stream->IsCrowded());
  Send(65536);
  EXPECT_TRUE(stream->IsCrowded());
  // The rest is for those who cannot wait.
  for (int i = 4; i < 15; ++i) EXPECT_GT(Send(65536), 0) << i;
  sockets.SendAnswers({{1 << 20, SocketError::none}});
  EXPECT_FALSE(stream->IsCrowded());
}

TEST_F(DeviceStreamLosses, AClosedStreamIsNotCrowded) {
  Overflow(0);
  EXPECT_TRUE(stream->IsCrowded());
  stream->Close();
  EXPECT_FALSE(stream->IsCrowded());
}

TEST_F(DeviceStreamLosses, AreToldWhenTheStreamIsClosedByOthers) {
  Overflow(2);
  stream->Close();
  Connect();
  EXPECT_EQ(log.Lines(), Lines{"DEBUG the device did not read: 2 frames dropped"});
}

TEST_F(DeviceStreamLosses, AreToldAtTheEndOfTheStreamsLife) {
  Overflow(3);
  stream.reset();
  EXPECT_EQ(log.Lines(), Lines{"DEBUG the device did not read: 3 frames dropped"});
}

TEST_F(DeviceStreamLosses, AreToldWhenSendersEndTheStallWhileTheReaderIsElsewhere) {
  Overflow(2);
  Drain();
  peer->Send("abc");
  char bytes[8];
  EXPECT_EQ(stream->Receive(bytes, sizeof bytes), 3);
  EXPECT_EQ(log.Lines(), Lines{"DEBUG the device did not read: 2 frames dropped"});
}

TEST_F(DeviceStreamLosses, AreToldWhenSendersEndTheStallBeforeAWaitHasNoticedIt) {
  Lines logged;
  sockets.NextWaitSees({.woken = true});
  sockets.BeforeWait([&] {
    sockets.BeforeWait([&] {
      logged = log.Lines();
      peer->Send("abc");
    });
    Overflow(3);
    Drain();
  });
  char bytes[8];
  EXPECT_EQ(stream->Receive(bytes, sizeof bytes), 3);
  EXPECT_EQ(logged, Lines{"DEBUG the device did not read: 3 frames dropped"});
}

TEST_F(DeviceStreamLosses, AreNotToldWhileTheStallGoesOn) {
  Overflow(1);
  peer->Send("abc");
  char bytes[8];
  EXPECT_EQ(stream->Receive(bytes, sizeof bytes), 3);
  EXPECT_EQ(log.Lines(), Lines{});
}

// What is kept begins inside a frame: a stream that does not take it is of no use any more.
TEST_F(DeviceStreamLosses, AStreamThatBreaksWhileSomethingIsKeptEnds) {
  Overflow(0);
  sockets.SendAnswers({{0, SocketError::other}});
  char byte;
  EXPECT_EQ(stream->Receive(&byte, 1), -1);
}

TEST_F(DeviceStreamLosses, WhatTheDeviceSentBeforeTheBreakIsRead) {
  Overflow(0);
  peer->Send("last words");
  sockets.SendAnswers({{0, SocketError::other}, {0, SocketError::other}, {0, SocketError::other}});
  char bytes[64];
  ASSERT_EQ(stream->Receive(bytes, sizeof bytes), 10);
  EXPECT_EQ(std::string(bytes, 10), "last words");
  EXPECT_EQ(stream->Receive(bytes, sizeof bytes), -1);
}

}  // namespace
}  // namespace corvalint
