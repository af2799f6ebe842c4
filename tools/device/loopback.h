#pragma once

#include <netinet/in.h>

#include <cstdint>

namespace corvalint::device {

// That port of 127.0.0.1, TCP or UDP; for a bind, port 0 is any free one.
inline sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

}  // namespace corvalint::device
