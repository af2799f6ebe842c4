#include "platform/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace corvalint {
namespace {

// What `select` counts as readable and as writable; an error is both.
constexpr short kReadable = POLLIN | POLLHUP | POLLERR;
constexpr short kWritable = POLLOUT | POLLERR;

int StartUp() { return 0; }

// Empties the counter, so that any number of signals before it count as one.
void Drain(int waker) {
  eventfd_t count = 0;
  eventfd_read(waker, &count);
}

SocketReadiness Wait(int socket, bool wantWritable, int waker) {
  const short wanted = static_cast<short>(POLLIN | POLLPRI | (wantWritable ? POLLOUT : 0));
  // `poll` passes over negative descriptors, and descriptor 0 means none here.
  std::array<pollfd, 2> polled{pollfd{socket > 0 ? socket : -1, wanted, 0},
                               pollfd{waker > 0 ? waker : -1, POLLIN, 0}};
  SocketReadiness seen;
  if (socket <= 0 && waker <= 0) {
    errno = EINVAL;
    seen.failed = true;
    return seen;
  }
  if (poll(polled.data(), polled.size(), -1) < 0) {
    seen.failed = true;
    return seen;
  }
  const short events = polled[0].revents;
  seen.readable = (events & kReadable) != 0;
  seen.exceptional = (events & POLLPRI) != 0;
  seen.writable = wantWritable && (events & kWritable) != 0;
  if ((polled[1].revents & POLLIN) != 0) {
    Drain(waker);
    seen.woken = true;
  }
  if (((events | polled[1].revents) & POLLNVAL) != 0) {
    errno = EBADF;
    seen.failed = true;
  }
  return seen;
}

int Receive(int socket, void* data, int size) {
  return static_cast<int>(recv(socket, data, static_cast<std::size_t>(size), 0));
}

int Send(int socket, const void* data, int size) {
  return static_cast<int>(send(socket, data, static_cast<std::size_t>(size), MSG_NOSIGNAL));
}

int SetNonBlocking(int socket) {
  const int flags = fcntl(socket, F_GETFL);
  return flags < 0 ? -1 : fcntl(socket, F_SETFL, flags | O_NONBLOCK);
}

int SetNoDelay(int socket) {
  const int on = 1;
  return setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int Shutdown(int socket) { return shutdown(socket, SHUT_RDWR); }

int Close(int socket) { return close(socket); }

SocketError LastError() {
  switch (errno) {
    case 0:
      return SocketError::none;
    case EAGAIN:
      return SocketError::wouldBlock;
    case EINTR:
      return SocketError::interrupted;
    default:
      return SocketError::other;
  }
}
static_assert(EAGAIN == EWOULDBLOCK);

int OpenWaker() {
  int waker = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (waker == 0) {
    waker = fcntl(0, F_DUPFD_CLOEXEC, 1);
    close(0);
  }
  return waker > 0 ? waker : 0;
}

void Wake(int waker) {
  if (waker > 0) eventfd_write(waker, 1);
}

void CloseWaker(int waker) {
  if (waker > 0) close(waker);
}

std::uint16_t ToNetworkOrder(std::uint16_t value) { return htons(value); }

}  // namespace

const SocketApi& SocketApi::System() {
  static constexpr SocketApi table{
      .startUp = StartUp,
      .wait = Wait,
      .receive = Receive,
      .send = Send,
      .setNonBlocking = SetNonBlocking,
      .setNoDelay = SetNoDelay,
      .shutdown = Shutdown,
      .close = Close,
      .lastError = LastError,
      .openWaker = OpenWaker,
      .wake = Wake,
      .closeWaker = CloseWaker,
      .toNetworkOrder = ToNetworkOrder,
  };
  return table;
}

}  // namespace corvalint
