#include "device/descriptor.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "device/loopback.h"

namespace corvalint::device {
namespace {

constexpr int kBacklog = 16;

[[noreturn]] void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

void Descriptor::Close() {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

Descriptor BindLoopback(std::uint16_t port, int receiveBuffer) {
  Descriptor bound(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!bound.Open()) Fail("socket");
  const int on = 1;
  if (::setsockopt(bound.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
    Fail("SO_REUSEADDR");
  }
  if (receiveBuffer > 0 &&
      ::setsockopt(bound.Get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer) != 0) {
    Fail("SO_RCVBUF");
  }
  const sockaddr_in address = Loopback(port);
  if (::bind(bound.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail("port " + std::to_string(port) + " of 127.0.0.1");
  }
  return bound;
}

std::uint16_t LocalPort(const Descriptor& socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    Fail("getsockname");
  }
  return ntohs(address.sin_port);
}

void Listen(const Descriptor& socket) {
  if (::listen(socket.Get(), kBacklog) != 0) Fail("listen");
  if (::fcntl(socket.Get(), F_SETFL, O_NONBLOCK) != 0) Fail("O_NONBLOCK");
}

Descriptor Accept(const Descriptor& listener) {
  Descriptor stream(::accept4(listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!stream.Open()) {
    if (errno == EAGAIN || errno == ECONNABORTED || errno == EINTR) return stream;
    Fail("accept");
  }
  const int on = 1;
  if (::setsockopt(stream.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
    Fail("TCP_NODELAY");
  }
  return stream;
}

void ResetOnClose(const Descriptor& stream) {
  const linger atOnce{1, 0};
  ::setsockopt(stream.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

int Unacknowledged(const Descriptor& stream) {
  int bytes = 0;
  if (::ioctl(stream.Get(), SIOCOUTQ, &bytes) != 0) return 0;
  return bytes;
}

Descriptor MakeWakeup() {
  Descriptor wakeup(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (!wakeup.Open()) Fail("eventfd");
  return wakeup;
}

void Wake(const Descriptor& wakeup) {
  const std::uint64_t one = 1;
  // The only failure is a counter that is full, and then the poll is awake anyway.
  [[maybe_unused]] const ssize_t written = ::write(wakeup.Get(), &one, sizeof one);
}

void TakeWakeups(const Descriptor& wakeup) {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t taken = ::read(wakeup.Get(), &count, sizeof count);
}

}  // namespace corvalint::device
