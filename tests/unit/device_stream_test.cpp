#include "protocol/device_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "clients/big_endian.h"
#include "support/device_stream_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Lines = std::vector<std::string>;

TEST(BigEndian, TheHighestByteComesFirst) {
  char bytes[5] = {};
  WriteBigEndian32(bytes + 1, 0x89ABCDEF);
  EXPECT_EQ(std::string(bytes, 5), std::string("\0\x89\xAB\xCD\xEF", 5));
  EXPECT_EQ(ReadBigEndian32(bytes + 1), 0x89ABCDEFu);
}

// --- sending

TEST_F(DeviceStreamTest, AFrameIsLengthTwoTwoAndPayload) {
  EXPECT_EQ(Send("/abc"), 16);
  EXPECT_EQ(peer->Receive(16), std::string("\0\0\0\4\0\0\0\2\0\0\0\2/abc", 16));
}

TEST_F(DeviceStreamTest, AFrameThatIsWholeGoesOutAsItIs) {
  const std::string bytes("\0\0\0\4\0\0\0\2\0\0\0\2/abc", 16);
  EXPECT_EQ(stream->SendFrame({bytes.data(), 4}), 16);
  EXPECT_EQ(peer->Receive(16), bytes);
  EXPECT_EQ(sockets.Sends(), std::vector<int>{16});
  stream->Close();
  EXPECT_EQ(stream->SendFrame({bytes.data(), 4}), -1);
}

TEST_F(DeviceStreamTest, AWholeFrameThatNoReceiverWouldAcceptIsNotSent) {
  const std::string bytes(kFrameHeaderSize + kMaximumPayload + 1, '\0');
  EXPECT_EQ(stream->SendFrame({bytes.data(), kMaximumPayload + 1}), -1);
  EXPECT_TRUE(sockets.Sends().empty());
}

TEST_F(DeviceStreamTest, AFrameGoesOutInOneSend) {
  Send("one!");
  Send("twotwo");
  EXPECT_EQ(sockets.Sends(), (std::vector<int>{16, 18}));
}

TEST_F(DeviceStreamTest, AnEmptyPayloadIsAHeader) {
  EXPECT_EQ(stream->Send(nullptr, 0), 12);
  EXPECT_EQ(peer->Receive(12), FrameOf(""));
}

TEST_F(DeviceStreamTest, TheLargestPayloadIs131072Bytes) {
  const std::string largest(131072, 'x');
  auto receiving = std::async(std::launch::async, [&] { return peer->ReceiveFrame() == largest; });
  EXPECT_EQ(Send(largest), 131084);
  auto rest = ReceiveAll();  // sends what was kept
  EXPECT_TRUE(receiving.get());
  stream->Close();
  EXPECT_EQ(rest.get(), -1);
}

TEST_F(DeviceStreamTest, ALargerPayloadIsNotSent) {
  EXPECT_EQ(Send(std::string(131073, 'x')), -1);
  EXPECT_TRUE(sockets.Sends().empty());
  Send("next");
  EXPECT_EQ(peer->ReceiveFrame(), "next");
}

TEST_F(DeviceStreamTest, NothingIsSentWhileClosed) {
  stream->Close();
  EXPECT_EQ(Send("late"), -1);
  EXPECT_TRUE(sockets.Sends().empty());
}

TEST_F(DeviceStreamTest, ABrokenStreamLosesTheFrame) {
  sockets.SendAnswers({{0, SocketError::other}});
  EXPECT_EQ(Send("lost"), -1);
  EXPECT_EQ(Send("kept"), 16);
  EXPECT_EQ(peer->ReceiveFrame(), "kept");
}

TEST_F(DeviceStreamTest, TheRestOfAShortWriteGoesBeforeTheNextFrame) {
  sockets.SendAnswers({{5, SocketError::none}});
  EXPECT_EQ(Send("first frame"), 23);
  EXPECT_EQ(Send("second frame"), 24);
  EXPECT_EQ(peer->ReceiveFrame(), "first frame");
  EXPECT_EQ(peer->ReceiveFrame(), "second frame");
  EXPECT_EQ(sockets.Sends(), (std::vector<int>{23, 18, 24}));
}

TEST_F(DeviceStreamTest, AFullStreamKeepsTheFrameWhole) {
  for (const SocketError error : {SocketError::wouldBlock, SocketError::interrupted}) {
    sockets.SendAnswers({{0, error}});
    EXPECT_EQ(Send("kept"), 16);
    EXPECT_EQ(Send("next"), 16);
    EXPECT_EQ(peer->ReceiveFrame(), "kept");
    EXPECT_EQ(peer->ReceiveFrame(), "next");
  }
}

// Senders hold locks: they try once and go on.
TEST_F(DeviceStreamTest, AFrameBehindARestThatDoesNotGoIsKeptInOrder) {
  sockets.BlockSends();
  EXPECT_EQ(Send("a"), 13);
  EXPECT_EQ(Send("bb"), 14);
  EXPECT_EQ(Send("ccc"), 15);
  EXPECT_EQ(sockets.Sends().size(), 3u);
  sockets.SendAnswers({{20, SocketError::none}});
  EXPECT_EQ(Send("dddd"), 16);  // the rest goes in part
  EXPECT_EQ(Send("eeeee"), 17);
  for (const char* payload : {"a", "bb", "ccc", "dddd", "eeeee"}) {
    EXPECT_EQ(peer->ReceiveFrame(), payload);
  }
}

// The last rest has no sender behind it.
TEST_F(DeviceStreamTest, TheReceivingThreadSendsTheRest) {
  std::promise<void> waiting;
  int waits = 0;
  sockets.BeforeWait([&] {
    if (++waits == 1) waiting.set_value();
  });
  auto receiving = ReceiveAll();
  waiting.get_future().wait();  // with nothing to send yet
  sockets.SendAnswers({{0, SocketError::wouldBlock}});
  Send("waiting");
  EXPECT_EQ(peer->ReceiveFrame(), "waiting");
  stream->Close();
  EXPECT_EQ(receiving.get(), -1);
}

TEST_F(DeviceStreamTest, FramesThatNobodyReadsAreDroppedWholeAndCounted) {
  const std::string payload(100000, 'x');
  sockets.BlockSends();
  int kept = 0;
  while (Send(payload) > 0) ++kept;
  EXPECT_EQ(kept, 10);  // a mebibyte
  EXPECT_EQ(Send(payload), -1);
  EXPECT_EQ(Send("short"), 17);  // there is still room for this one
  EXPECT_EQ(log.Lines(), Lines{});

  sockets.SendAnswers({});
  auto receiving = ReceiveAll();
  for (int i = 0; i < kept; ++i) EXPECT_EQ(peer->ReceiveFrame(), payload);
  EXPECT_EQ(peer->ReceiveFrame(), "short");
  peer->EndSending();
  EXPECT_EQ(receiving.get(), 0);
  EXPECT_EQ(log.Lines(), (Lines{"DEBUG the device did not read: 2 frames dropped"}));
}

TEST_F(DeviceStreamTest, AReconnectionStartsWithoutTheOldRest) {
  sockets.SendAnswers({{7, SocketError::none}});
  Send("torn in two");
  stream->Close();
  Connect();
  Send("fresh");
  EXPECT_EQ(peer->ReceiveFrame(), "fresh");
}

TEST_F(DeviceStreamTest, FramesOfManyThreadsDoNotMixAndKeepTheirOrder) {
  constexpr int kThreads = 4;
  constexpr int kFrames = 300;
  sockets.SendAnswers({{3, SocketError::none}, {0, SocketError::wouldBlock}, {30, {}}, {1, {}}});
  auto receiving = ReceiveAll();
  std::vector<std::thread> senders;
  for (int i = 0; i < kThreads; ++i) {
    senders.emplace_back([this, i] {
      const char letter = static_cast<char>('a' + i);
      for (int n = 0; n < kFrames; ++n) {
        EXPECT_GT(Send(std::string(static_cast<std::size_t>(40 + n), letter)), 0);
      }
    });
  }
  std::vector<std::size_t> next(kThreads, 40);
  for (int n = 0; n < kThreads * kFrames; ++n) {
    const std::string payload = peer->ReceiveFrame();
    ASSERT_FALSE(payload.empty());
    const auto sender = static_cast<std::size_t>(payload[0] - 'a');
    ASSERT_LT(sender, next.size());
    EXPECT_EQ(payload, std::string(next[sender]++, payload[0]));
  }
  for (std::thread& sender : senders) sender.join();
  stream->Close();
  EXPECT_EQ(receiving.get(), -1);
}

// --- closing

TEST_F(DeviceStreamTest, CloseSaysWhetherAStreamWasOpen) {
  EXPECT_TRUE(stream->IsOpen());
  EXPECT_TRUE(stream->Close());
  EXPECT_FALSE(stream->IsOpen());
  EXPECT_FALSE(stream->Close());
  EXPECT_EQ(sockets.Closed(), std::vector<int>{socket});
}

TEST_F(DeviceStreamTest, TheDeviceSeesTheEndAtOnce) {
  stream->Close();
  EXPECT_TRUE(peer->Ended());
}

// The number must not be used again under a thread that waits with it.
TEST_F(DeviceStreamTest, TheHandleIsClosedOnceTheReceivingThreadHasLeft) {
  std::promise<void> waiting;
  std::promise<void> goOn;
  sockets.BeforeWait([&] {
    waiting.set_value();
    goOn.get_future().wait();
  });
  auto receiving = ReceiveAll();
  waiting.get_future().wait();
  EXPECT_TRUE(stream->Close());
  EXPECT_TRUE(sockets.Closed().empty());
  goOn.set_value();
  EXPECT_EQ(receiving.get(), -1);
  EXPECT_EQ(sockets.Receives(), 0);
  EXPECT_EQ(sockets.Closed(), std::vector<int>{socket});
}

TEST_F(DeviceStreamTest, BytesThatCameAfterACloseAreNotTaken) {
  peer->Send("too late");
  sockets.BeforeReceive([&] { stream->Close(); });
  char buffer[8];
  EXPECT_EQ(stream->Receive(buffer, 8), -1);
}

TEST_F(DeviceStreamTest, ABlockedReceiveEndsWithMinusOne) {
  std::promise<void> waiting;
  sockets.BeforeWait([&] { waiting.set_value(); });
  auto receiving = ReceiveAll();
  waiting.get_future().wait();
  stream->Close();
  EXPECT_EQ(receiving.get(), -1);
}

TEST_F(DeviceStreamTest, TheStreamWorksAgainAfterAReconnection) {
  stream->Close();
  Connect();
  peer->Send("abc");
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 3);
  EXPECT_STREQ(buffer, "abc");
}

TEST_F(DeviceStreamTest, TheDestructorClosesWhatIsOpen) {
  stream.reset();
  EXPECT_EQ(sockets.Closed(), std::vector<int>{socket});
}

// A send to a number that another stream got meanwhile fails the test inside ScriptedSockets.
TEST_F(DeviceStreamTest, SendersAndACloserDoNotCross) {
  for (int round = 0; round < 30; ++round) {
    auto receiving = ReceiveAll();
    std::thread sender([this] {
      while (Send("frame") > 0) {
      }
    });
    EXPECT_EQ(peer->ReceiveFrame(), "frame");
    stream->Close();
    sender.join();
    EXPECT_EQ(receiving.get(), -1);
    Connect();
  }
  EXPECT_EQ(sockets.Closed().size(), 30u);
}

}  // namespace
}  // namespace corvalint
