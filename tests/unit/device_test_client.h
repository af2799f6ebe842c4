#pragma once

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "device/device_record.h"
#include "device/frame.h"
#include "device/loopback.h"

namespace corvalint::device {

// Long enough for a loaded machine under a sanitizer; nothing waits for it when all is well.
inline constexpr std::chrono::milliseconds kLong{20000};
// For things that must not happen.
inline constexpr std::chrono::milliseconds kShort{50};

// A small "/midi" whose data is its number.
inline Bytes NumberedMidi(std::int32_t number) {
  return EncodeMidi("Keys", 7, number, {0x90, static_cast<std::uint8_t>(number & 0x7F), 1});
}

// The time stamps of "/midi" messages.
inline std::vector<std::int64_t> TimesOf(const std::vector<ReceivedMessage>& messages) {
  std::vector<std::int64_t> times;
  for (const ReceivedMessage& received : messages) {
    times.push_back(received.message.Argument<std::int64_t>(2));
  }
  return times;
}

// A plain TCP client, which stands for the bridge. Its reads time out after kLong.
class TestClient {
 public:
  explicit TestClient(std::uint16_t port, int receiveBuffer = 0, int sendBuffer = 0) {
    fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0) {
      ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    if (sendBuffer > 0) ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    const timeval limit{kLong.count() / 1000, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const sockaddr_in address = Loopback(port);
    connectError =
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
  }
  ~TestClient() { Close(); }
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  // 0, or why it could not connect.
  int ConnectError() const { return connectError; }

  // Sends all of it, waiting as long as it takes.
  bool Send(const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) return false;
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }
  bool SendPacket(const Bytes& packet) { return Send(EncodeFrame(packet)); }

  // Sends what is taken without waiting, and gives its size; 0 when nothing is.
  std::size_t SendWithoutWaiting(const Bytes& bytes) {
    const ssize_t count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }

  // Exactly so many bytes, or fewer when the stream ends first.
  Bytes Read(std::size_t size) {
    Bytes bytes(size);
    std::size_t got = 0;
    while (got < size) {
      const ssize_t count = ::recv(fd, bytes.data() + got, size - got, 0);
      if (count <= 0) {
        endError = count == 0 ? 0 : errno;
        break;
      }
      got += static_cast<std::size_t>(count);
    }
    bytes.resize(got);
    return bytes;
  }

  // What one recv gives.
  Bytes ReadSome() {
    Bytes bytes(65536);
    const ssize_t count = ::recv(fd, bytes.data(), bytes.size(), 0);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return bytes;
  }

  // All bytes until the stream ends.
  Bytes ReadToEnd() { return Read(1 << 24); }
  // How it ended: 0 regularly, ECONNRESET, or EAGAIN when it did not end in time.
  int EndError() const { return endError; }

  // The messages of the next frame.
  std::vector<OscMessage> ReadMessages() {
    for (;;) {
      if (std::optional<FrameReader::Frame> frame = reader.Next()) {
        return DecodePacket(frame->bytes.data() + kFrameHeaderSize, frame->header.length);
      }
      const Bytes more = ReadSome();
      if (more.empty()) return {};
      reader.Feed(more.data(), more.size());
    }
  }
  // The one message of the next frame; one without an address when there is none.
  OscMessage ReadMessage() {
    const std::vector<OscMessage> messages = ReadMessages();
    return messages.size() == 1 ? messages.front() : OscMessage{};
  }

  // Bytes of the device's stream that are not a whole frame (yet).
  const FrameReader& Reader() const { return reader; }

  // A regular end after what was sent.
  void Finish() { ::shutdown(fd, SHUT_WR); }
  void Reset() {
    const linger atOnce{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    Close();
  }
  void Close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }

 private:
  int fd = -1;
  int connectError = 0;
  int endError = -1;
  FrameReader reader;
};

}  // namespace corvalint::device
