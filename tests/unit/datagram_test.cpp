#include "platform/datagram.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "support/udp_program.h"

namespace corvalint {
namespace {

using namespace test;

constexpr int kRoom = 131084;

class DatagramTest : public testing::Test {
 protected:
  DatagramTest() {
    EXPECT_GT(socket, 0);
    EXPECT_EQ(datagrams.bindLoopback(socket, number), 0);
  }
  ~DatagramTest() override { sockets.close(socket); }

  int SendTo(std::uint16_t port, const std::string& bytes) {
    return datagrams.send(socket, bytes.data(), static_cast<int>(bytes.size()),
                          htonl(INADDR_LOOPBACK), port);
  }
  std::string Receive() {
    EXPECT_TRUE(sockets.wait(socket, false, 0).readable);
    std::string bytes(kRoom, '\0');
    const int got = datagrams.receive(socket, bytes.data(), kRoom);
    if (got < 0) return "failed";
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
  }

  const DatagramApi& datagrams = DatagramApi::System();
  const SocketApi& sockets = SocketApi::System();
  const std::uint16_t number = FreeUdpPort();
  const int socket = datagrams.open();
  UdpProgram program;
};

TEST_F(DatagramTest, ASocketNeitherBlocksNorIsInherited) {
  EXPECT_NE(fcntl(socket, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(socket, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(DatagramTest, ABoundSocketIsOnLoopbackAlone) {
  EXPECT_EQ(StateOfSocket(socket).address, "127.0.0.1");
  EXPECT_EQ(StateOfSocket(socket).port, number);
}

TEST_F(DatagramTest, APortNumberIsBoundOnce) {
  const int other = datagrams.open();
  EXPECT_EQ(datagrams.bindLoopback(other, number), -1);
  EXPECT_EQ(datagrams.bindLoopback(other, 0), 0);
  EXPECT_EQ(StateOfSocket(other).address, "127.0.0.1");
  EXPECT_NE(StateOfSocket(other).port, 0);
  sockets.close(other);
}

TEST_F(DatagramTest, DatagramsOfAllSizesGoBothWays) {
  for (const std::size_t size : {0u, 1u, 3u, 4u, 1400u, 1500u, 9000u, 65507u}) {
    const std::string bytes(size, static_cast<char>('a' + size % 26));
    program.Send(number, bytes);
    EXPECT_EQ(Receive(), bytes) << size;
    EXPECT_EQ(SendTo(program.Port(), bytes), static_cast<int>(size));
    EXPECT_EQ(program.Receive(), bytes) << size;
  }
}

TEST_F(DatagramTest, ADatagramThatIsTooLongIsNotSent) {
  EXPECT_EQ(SendTo(program.Port(), std::string(65508, 'x')), -1);
  EXPECT_TRUE(program.Silent());
}

TEST_F(DatagramTest, AReceiveWithNothingThereWouldBlock) {
  char byte;
  EXPECT_EQ(datagrams.receive(socket, &byte, 1), -1);
  EXPECT_EQ(sockets.lastError(), SocketError::wouldBlock);
}

TEST_F(DatagramTest, ASendThatNobodyListensToDoesNotFailALaterReceive) {
  EXPECT_EQ(SendTo(FreeUdpPort(), "nobody"), 6);
  char byte;
  EXPECT_EQ(datagrams.receive(socket, &byte, 1), -1);
  EXPECT_EQ(sockets.lastError(), SocketError::wouldBlock);
  program.Send(number, "still here");
  EXPECT_EQ(Receive(), "still here");
}

TEST_F(DatagramTest, AnAddressIsReadIntoNetworkOrder) {
  std::uint32_t address = 0;
  EXPECT_TRUE(datagrams.parseAddress("127.0.0.1", &address));
  EXPECT_EQ(address, htonl(0x7F000001));
  EXPECT_TRUE(datagrams.parseAddress("192.168.2.254", &address));
  EXPECT_EQ(address, htonl(0xC0A802FE));
  EXPECT_TRUE(datagrams.parseAddress("0.0.0.0", &address));
  EXPECT_EQ(address, 0u);
}

TEST_F(DatagramTest, WhatIsNoAddressLeavesZero) {
  const std::vector<std::string> wrong = {
      "",          "localhost",   "127.0.0", "127.0.0.1 ",   " 127.0.0.1",
      "256.0.0.1", "127.0.0.1.1", "::1",     "127.0.0.\xB1", std::string(100000, '1')};
  for (const std::string& text : wrong) {
    std::uint32_t address = 99;
    EXPECT_FALSE(datagrams.parseAddress(text, &address)) << text.substr(0, 20);
    EXPECT_EQ(address, 0u) << text.substr(0, 20);
  }
}

TEST_F(DatagramTest, NoSocketIsANumberBelowOne) {
  int (*const open)() = datagrams.open;  // a sanitizer cannot look at objects meanwhile
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int made = open();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(made, -1);
}

// A descriptor 0 means "none" to everybody else, so nobody would ever close it.
TEST_F(DatagramTest, DescriptorZeroIsNoSocketAndIsNotKept) {
  const int standardInput = fcntl(0, F_DUPFD_CLOEXEC, 3);
  ASSERT_GT(standardInput, 0);
  close(0);
  const int made = datagrams.open();
  const bool kept = fcntl(0, F_GETFD) != -1;
  if (kept) close(0);
  dup2(standardInput, 0);
  close(standardInput);
  EXPECT_EQ(made, 0);
  EXPECT_FALSE(kept);
}

}  // namespace
}  // namespace corvalint
