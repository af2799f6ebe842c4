#include "demo/udp_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace corvalint::demo {

namespace {

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

UdpSocket::UdpSocket() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)) {
  if (descriptor.Get() < 0) Fail("a UDP socket");
  const sockaddr_in address = Loopback(0);
  if (bind(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Fail("binding a UDP socket");
  }
  port = device::LocalPort(descriptor);
}

void UdpSocket::Send(std::uint16_t destination, const harness::Bytes& datagram) {
  const sockaddr_in address = Loopback(destination);
  while (sendto(descriptor.Get(), datagram.data(), datagram.size(), 0,
                reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
    if (errno != EINTR) Fail("sending a datagram");
  }
}

std::uint16_t FreeUdpPort() { return UdpSocket().Port(); }

}  // namespace corvalint::demo
