#include "support/stream_peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "clients/big_endian.h"
#include "device/loopback.h"

namespace corvalint::test {

namespace {

constexpr int kTimeOutMilliseconds = 30000;

void ShrinkBuffers(int socket, int size) {
  if (size <= 0) return;
  setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

}  // namespace

std::string FrameOf(const std::string& payload, std::uint32_t kind, std::uint32_t tag) {
  std::array<char, 12> header{};
  WriteBigEndian32(header.data(), static_cast<std::uint32_t>(payload.size()));
  WriteBigEndian32(header.data() + 4, kind);
  WriteBigEndian32(header.data() + 8, tag);
  return std::string(header.data(), header.size()) + payload;
}

void StreamPeer::Send(const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t taken = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    ASSERT_GT(taken, 0) << "the library has ended the stream";
    sent += static_cast<std::size_t>(taken);
  }
}

void StreamPeer::SendFrame(const std::string& payload, std::uint32_t kind, std::uint32_t tag) {
  Send(FrameOf(payload, kind, tag));
}

void StreamPeer::SendUrgent(char byte) {
  ASSERT_EQ(send(socket, &byte, 1, MSG_OOB | MSG_NOSIGNAL), 1);
}

bool StreamPeer::WaitReadable() {
  pollfd polled{socket, POLLIN, 0};
  return poll(&polled, 1, kTimeOutMilliseconds) == 1;
}

std::string StreamPeer::Receive(std::size_t count) {
  std::string bytes;
  std::array<char, 65536> chunk;
  while (bytes.size() < count) {
    if (!WaitReadable()) {
      ADD_FAILURE() << "only " << bytes.size() << " of " << count << " bytes came";
      return bytes;
    }
    const ssize_t got = recv(socket, chunk.data(), std::min(count - bytes.size(), chunk.size()), 0);
    if (got <= 0) {
      ADD_FAILURE() << "the stream ended after " << bytes.size() << " of " << count << " bytes";
      return bytes;
    }
    bytes.append(chunk.data(), static_cast<std::size_t>(got));
  }
  return bytes;
}

std::string StreamPeer::ReceiveSome() {
  std::string bytes(std::size_t{1} << 18, '\0');
  EXPECT_TRUE(WaitReadable());
  const ssize_t got = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
  bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return bytes;
}

std::string StreamPeer::ReceiveFrame() {
  const std::string header = Receive(12);
  if (header.size() < 12) return {};
  EXPECT_EQ(ReadBigEndian32(header.data() + 4), 2u) << "the frame's kind";
  EXPECT_EQ(ReadBigEndian32(header.data() + 8), 2u) << "the frame's tag";
  return Receive(ReadBigEndian32(header.data()));
}

bool StreamPeer::Ended() {
  char byte;
  if (!WaitReadable()) return false;
  return recv(socket, &byte, 1, MSG_PEEK) <= 0;
}

bool StreamPeer::Silent() {
  pollfd polled{socket, POLLIN, 0};
  return poll(&polled, 1, 0) == 0;
}

void StreamPeer::EndSending() { shutdown(socket, SHUT_WR); }

void StreamPeer::Reset() {
  const linger abortive{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
  Close();
}

void StreamPeer::Close() {
  if (socket > 0) close(socket);
  socket = 0;
}

StreamPair MakeStreamPair(int buffer) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ShrinkBuffers(listener, buffer);
  sockaddr_in address = device::Loopback(0);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener, 1), 0);
  EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const int library = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ShrinkBuffers(library, buffer);
  EXPECT_EQ(connect(library, reinterpret_cast<sockaddr*>(&address), size), 0);
  const int device = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  EXPECT_GT(device, 0);
  close(listener);
  return {library, std::make_unique<StreamPeer>(device)};
}

}  // namespace corvalint::test
