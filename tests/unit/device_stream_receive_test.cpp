// What a device's stream gives to the thread that reads it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/device_stream_fixture.h"

namespace corvalint {
namespace {

using namespace test;

TEST_F(DeviceStreamTest, ReceiveGivesWhatThereIs) {
  peer->Send("abc");
  char buffer[8] = {};
  EXPECT_EQ(stream->Receive(buffer, 8), 3);
  EXPECT_STREQ(buffer, "abc");
}

TEST_F(DeviceStreamTest, ReceiveGivesNoMoreThanAskedFor) {
  peer->Send("abcdef");
  char buffer[8] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  EXPECT_STREQ(buffer, "abcd");
}

// What follows a receive that got all it asked for is there already, most likely.
TEST_F(DeviceStreamTest, InABurstNothingIsWaitedFor) {
  int waits = 0;
  sockets.BeforeWait([&] { ++waits; });
  peer->Send("abcdefgh");
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  EXPECT_EQ(waits, 1);
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), "efgh");
  EXPECT_EQ(waits, 1);
  sockets.BeforeWait([&] { peer->Send("i"); });
  EXPECT_EQ(stream->Receive(buffer, 4), 1);
}

TEST_F(DeviceStreamTest, WhatWasKeptGoesOutInTheMiddleOfABurst) {
  peer->Send("abcdefgh");
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  sockets.SendAnswers({{0, SocketError::wouldBlock}});
  Send("waiting");
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  EXPECT_EQ(peer->ReceiveFrame(), "waiting");
}

TEST_F(DeviceStreamTest, ABurstThatEndsWithTheStreamOrAFailureSaysSo) {
  int waits = 0;
  sockets.BeforeWait([&] { ++waits; });
  peer->Send("abcd");
  peer->Close();
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  EXPECT_EQ(stream->Receive(buffer, 4), 0);
  EXPECT_EQ(waits, 1);
  stream->Close();
  Connect();
  peer->Send("abcd");
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  sockets.ReceiveErrors({SocketError::other});
  EXPECT_EQ(stream->Receive(buffer, 4), -1);
  EXPECT_EQ(waits, 2);
}

TEST_F(DeviceStreamTest, BytesOfABurstThatCameAfterACloseAreNotTaken) {
  peer->Send("abcdefgh");
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  sockets.BeforeReceive([&] { stream->Close(); });
  EXPECT_EQ(stream->Receive(buffer, 4), -1);
}

TEST_F(DeviceStreamTest, ANewStreamIsWaitedForWhateverTheOldOneWasInTheMiddleOf) {
  peer->Send("abcdefgh");
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 4), 4);
  stream->Close();
  Connect();
  bool waited = false;
  sockets.BeforeWait([&] {
    waited = true;
    peer->Send("new");
  });
  const int before = sockets.Receives();
  EXPECT_EQ(stream->Receive(buffer, 4), 3);
  EXPECT_TRUE(waited);
  EXPECT_EQ(sockets.Receives(), before + 1);
}

TEST_F(DeviceStreamTest, TheEndOfTheStreamIsZero) {
  peer->Close();
  char byte;
  EXPECT_EQ(stream->Receive(&byte, 1), 0);
}

TEST_F(DeviceStreamTest, ABrokenStreamIsMinusOne) {
  peer->Reset();
  char byte;
  EXPECT_EQ(stream->Receive(&byte, 1), -1);
}

TEST_F(DeviceStreamTest, NothingIsReceivedWhileClosed) {
  stream->Close();
  char byte;
  EXPECT_EQ(stream->Receive(&byte, 1), -1);
  EXPECT_EQ(sockets.Receives(), 0);
}

TEST_F(DeviceStreamTest, ReadinessWithoutDataIsNoEnd) {
  sockets.NextWaitSees({.readable = true});
  sockets.ReceiveErrors({SocketError::wouldBlock, SocketError::interrupted});
  sockets.WaitErrors({SocketError::interrupted, SocketError::wouldBlock});
  peer->Send("x");
  char byte = 0;
  EXPECT_EQ(stream->Receive(&byte, 1), 1);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(sockets.Receives(), 3);
}

TEST_F(DeviceStreamTest, AFailedWaitIsAFailure) {
  sockets.WaitErrors({SocketError::other});
  char byte;
  EXPECT_EQ(stream->Receive(&byte, 1), -1);
}

TEST_F(DeviceStreamTest, UrgentDataIsNoEnd) {
  peer->SendUrgent('!');
  clock.WhenSleeping([&](std::uint32_t) { peer->Send("ok"); });
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 2), 2);
  EXPECT_STREQ(buffer, "ok");
}

// It stays pending without anything to read; asking again at once would keep a processor busy.
TEST_F(DeviceStreamTest, PendingUrgentDataIsAskedForOnceAMillisecond) {
  for (int i = 0; i < 3; ++i) sockets.NextWaitSees({.exceptional = true});
  sockets.ReceiveErrors(
      {SocketError::wouldBlock, SocketError::wouldBlock, SocketError::wouldBlock});
  peer->Send("ok");
  char buffer[4] = {};
  EXPECT_EQ(stream->Receive(buffer, 2), 2);
  EXPECT_EQ(clock.TakeSleeps(), (std::vector<std::uint32_t>{1, 1, 1}));
}

}  // namespace
}  // namespace corvalint
