#include "demo/udp_socket.h"

#include <sys/socket.h>

#include <cerrno>
#include <system_error>

#include "device/loopback.h"

namespace corvalint::demo {

namespace {

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

UdpSocket::UdpSocket() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)) {
  if (descriptor.Get() < 0) Fail("a UDP socket");
  const sockaddr_in address = device::Loopback(0);
  if (bind(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Fail("binding a UDP socket");
  }
  port = device::LocalPort(descriptor);
}

void UdpSocket::Send(std::uint16_t destination, const harness::Bytes& datagram) {
  const sockaddr_in address = device::Loopback(destination);
  while (sendto(descriptor.Get(), datagram.data(), datagram.size(), 0,
                reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
    if (errno != EINTR) Fail("sending a datagram");
  }
}

std::uint16_t FreeUdpPort() { return UdpSocket().Port(); }

}  // namespace corvalint::demo
