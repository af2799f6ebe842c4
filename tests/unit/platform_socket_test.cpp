#include "platform/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/clock.h"

namespace corvalint {
namespace {

// Two ends of a stream.
class SocketTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sockets.startUp(), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    waker = sockets.openWaker();
    ASSERT_GT(waker, 0);
  }
  void TearDown() override {
    sockets.closeWaker(waker);
    for (const int end : ends) {
      if (end > 0) sockets.close(end);
    }
  }

  int Near() const { return ends[0]; }
  int Far() const { return ends[1]; }
  void CloseFar() {
    sockets.close(ends[1]);
    ends[1] = 0;
  }
  // Sends until the stream takes no more.
  void FillStream() {
    ASSERT_EQ(sockets.setNonBlocking(Near()), 0);
    const std::vector<char> block(65536, 'x');
    while (sockets.send(Near(), block.data(), static_cast<int>(block.size())) > 0) {
    }
    ASSERT_EQ(sockets.lastError(), SocketError::wouldBlock);
  }

  const SocketApi& sockets = SocketApi::System();
  std::array<int, 2> ends{};
  int waker = 0;
};

TEST_F(SocketTest, WaitSeesDataAndReceiveTakesIt) {
  ASSERT_EQ(sockets.send(Far(), "abc", 3), 3);
  const SocketReadiness seen = sockets.wait(Near(), false, waker);
  EXPECT_TRUE(seen.readable);
  EXPECT_FALSE(seen.exceptional || seen.writable || seen.woken || seen.failed);
  std::array<char, 8> data{};
  EXPECT_EQ(sockets.receive(Near(), data.data(), 8), 3);
  EXPECT_STREQ(data.data(), "abc");
}

TEST_F(SocketTest, WaitSeesTheEndOfTheStream) {
  CloseFar();
  EXPECT_TRUE(sockets.wait(Near(), false, waker).readable);
  char byte = 0;
  EXPECT_EQ(sockets.receive(Near(), &byte, 1), 0);
}

TEST_F(SocketTest, WritableIsToldOnlyWhenAskedFor) {
  const SocketReadiness asked = sockets.wait(Near(), true, waker);
  EXPECT_TRUE(asked.writable);
  EXPECT_FALSE(asked.readable);
  sockets.wake(waker);
  EXPECT_FALSE(sockets.wait(Near(), false, waker).writable);
}

TEST_F(SocketTest, WaitSeesRoomComeBackToAFullStream) {
  FillStream();
  sockets.wake(waker);
  EXPECT_FALSE(sockets.wait(Near(), true, waker).writable);
  std::thread reader([&] {
    std::vector<char> data(65536);
    ASSERT_EQ(sockets.setNonBlocking(Far()), 0);
    while (sockets.receive(Far(), data.data(), static_cast<int>(data.size())) > 0) {
    }
  });
  const SocketReadiness seen = sockets.wait(Near(), true, waker);
  reader.join();
  EXPECT_TRUE(seen.writable);
  EXPECT_FALSE(seen.woken || seen.failed);
}

TEST_F(SocketTest, WakerEndsAWaitThatIsUnderWay) {
  std::atomic<bool> waiting{false};
  SocketReadiness seen;
  std::thread waiter([&] {
    waiting = true;
    seen = sockets.wait(Near(), false, waker);
  });
  while (!waiting) std::this_thread::yield();
  ClockApi::System().sleep(5);
  sockets.wake(waker);
  waiter.join();
  EXPECT_TRUE(seen.woken);
  EXPECT_FALSE(seen.readable || seen.failed);
}

TEST_F(SocketTest, SeveralSignalsBeforeAWaitCountAsOne) {
  for (int i = 0; i < 100; ++i) sockets.wake(waker);
  EXPECT_TRUE(sockets.wait(Near(), false, waker).woken);
  ASSERT_EQ(sockets.send(Far(), "x", 1), 1);
  const SocketReadiness second = sockets.wait(Near(), false, waker);
  EXPECT_TRUE(second.readable);
  EXPECT_FALSE(second.woken);
}

TEST_F(SocketTest, AWaitForTheWakerAloneEnds) {
  sockets.wake(waker);
  const SocketReadiness seen = sockets.wait(0, false, waker);
  EXPECT_TRUE(seen.woken);
  EXPECT_FALSE(seen.readable || seen.failed);
}

TEST_F(SocketTest, AWaitForNothingOrForAClosedSocketFails) {
  EXPECT_TRUE(sockets.wait(0, false, 0).failed);
  EXPECT_EQ(sockets.lastError(), SocketError::other);
  const int closed = Far();
  CloseFar();
  EXPECT_TRUE(sockets.wait(closed, false, 0).failed);
  EXPECT_EQ(sockets.lastError(), SocketError::other);
}

TEST_F(SocketTest, ShutdownEndsAWaitByAnotherThread) {
  SocketReadiness seen;
  std::thread waiter([&] { seen = sockets.wait(Near(), false, 0); });
  ClockApi::System().sleep(5);
  EXPECT_EQ(sockets.shutdown(Near()), 0);
  waiter.join();
  EXPECT_TRUE(seen.readable);
}

TEST_F(SocketTest, SendToAClosedStreamFailsWithoutASignal) {
  CloseFar();
  EXPECT_EQ(sockets.send(Near(), "x", 1), -1);
  EXPECT_EQ(sockets.lastError(), SocketError::other);
}

TEST_F(SocketTest, AnEmptyNonBlockingStreamWouldBlock) {
  ASSERT_EQ(sockets.setNonBlocking(Near()), 0);
  char byte = 0;
  EXPECT_EQ(sockets.receive(Near(), &byte, 1), -1);
  EXPECT_EQ(sockets.lastError(), SocketError::wouldBlock);
}

TEST_F(SocketTest, AnInterruptionIsToldAsOne) {
  errno = EINTR;
  EXPECT_EQ(sockets.lastError(), SocketError::interrupted);
  errno = 0;
  EXPECT_EQ(sockets.lastError(), SocketError::none);
}

TEST_F(SocketTest, UrgentDataIsExceptional) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int sender = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  ASSERT_EQ(bind(listener, name, size), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  ASSERT_EQ(getsockname(listener, name, &size), 0);
  ASSERT_EQ(connect(sender, name, size), 0);
  const int receiver = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  ASSERT_GT(receiver, 0);

  ASSERT_EQ(send(sender, "!", 1, MSG_OOB), 1);
  EXPECT_TRUE(sockets.wait(receiver, false, waker).exceptional);

  ASSERT_EQ(sockets.setNoDelay(sender), 0);
  int noDelay = 0;
  socklen_t noDelaySize = sizeof noDelay;
  ASSERT_EQ(getsockopt(sender, IPPROTO_TCP, TCP_NODELAY, &noDelay, &noDelaySize), 0);
  EXPECT_NE(noDelay, 0);
  for (const int open : {listener, sender, receiver}) EXPECT_EQ(sockets.close(open), 0);
}

TEST_F(SocketTest, DescriptorsAboveASelectSetAreWaitedFor) {
  const int high = fcntl(Near(), F_DUPFD_CLOEXEC, 1024);
  if (high < 0) GTEST_SKIP() << "this process may not open 1024 descriptors";
  ASSERT_EQ(sockets.send(Far(), "x", 1), 1);
  EXPECT_TRUE(sockets.wait(high, false, waker).readable);
  EXPECT_EQ(sockets.close(high), 0);
}

TEST_F(SocketTest, NetworkOrderPutsTheHighByteFirst) {
  const std::uint16_t ordered = sockets.toNetworkOrder(0x1234);
  std::array<unsigned char, 2> bytes{};
  std::memcpy(bytes.data(), &ordered, 2);
  EXPECT_EQ(bytes[0], 0x12);
  EXPECT_EQ(bytes[1], 0x34);
}

}  // namespace
}  // namespace corvalint
