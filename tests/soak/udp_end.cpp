#include "soak/udp_end.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "device/loopback.h"

namespace corvalint::soak {

namespace {

device::Descriptor Bound(std::uint16_t port) {
  device::Descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_in address = device::Loopback(port);
  if (made.Open() &&
      bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return made;
  }
  throw std::system_error(errno, std::generic_category(), "a UDP socket");
}

}  // namespace

UdpEnd::UdpEnd() : socket(Bound(0)), port(device::LocalPort(socket)) {}

void UdpEnd::Send(std::uint16_t destination, const Bytes& datagram) const {
  const sockaddr_in address = device::Loopback(destination);
  // A refused datagram is what happens to programs that speak to a port that is gone.
  static_cast<void>(sendto(socket.Get(), datagram.data(), datagram.size(), 0,
                           reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

std::optional<UdpEnd::Bytes> UdpEnd::Receive() const {
  Bytes datagram(65536);
  const ssize_t got = recv(socket.Get(), datagram.data(), datagram.size(), 0);
  if (got < 0) return std::nullopt;
  datagram.resize(static_cast<std::size_t>(got));
  return datagram;
}

}  // namespace corvalint::soak
