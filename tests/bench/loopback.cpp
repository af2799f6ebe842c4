#include "bench/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "device/loopback.h"

namespace corvalint::bench {

namespace {

constexpr int kLargeBuffer = 8 << 20;

int Checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

void Enlarge(int socket) {
  for (const auto& [forced, asked] :
       {std::array{SO_RCVBUFFORCE, SO_RCVBUF}, std::array{SO_SNDBUFFORCE, SO_SNDBUF}}) {
    if (setsockopt(socket, SOL_SOCKET, forced, &kLargeBuffer, sizeof kLargeBuffer) == 0) continue;
    setsockopt(socket, SOL_SOCKET, asked, &kLargeBuffer, sizeof kLargeBuffer);
  }
}

void SendAtOnce(int socket) {
  const int on = 1;
  Checked(setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
}

}  // namespace

Loopback MakeLoopback(Buffers buffers) {
  const int listener = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  Loopback made;
  made.library = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  if (buffers == Buffers::large) {
    Enlarge(listener);  // what it accepts inherits it
    Enlarge(made.library);
  }
  sockaddr_in address = device::Loopback(0);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  Checked(bind(listener, any, size), "bind");
  Checked(listen(listener, 1), "listen");
  Checked(getsockname(listener, any, &size), "getsockname");
  Checked(connect(made.library, any, size), "connect");
  made.device = Checked(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
  close(listener);
  SendAtOnce(made.library);
  SendAtOnce(made.device);
  return made;
}

std::size_t WriteWhatFits(int socket, const std::vector<char>& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count =
        send(socket, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count <= 0) break;
    written += static_cast<std::size_t>(count);
  }
  return written;
}

void WriteAll(int socket, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t taken =
        Checked(static_cast<int>(send(socket, bytes, count, MSG_NOSIGNAL)), "send");
    bytes += taken;
    count -= static_cast<std::size_t>(taken);
  }
}

std::size_t Drain(int socket) {
  static thread_local std::vector<char> buffer(1 << 18);
  std::size_t drained = 0;
  for (;;) {
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count <= 0) return drained;
    drained += static_cast<std::size_t>(count);
  }
}

}  // namespace corvalint::bench
