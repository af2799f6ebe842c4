#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "device/descriptor.h"
#include "ports/free_udp_port.h"

namespace corvalint::soak {

using test::FreeUdpPort;

// A desktop program that speaks UDP: a socket on 127.0.0.1 that never blocks. For one thread.
class UdpEnd {
 public:
  using Bytes = std::vector<std::uint8_t>;

  // Throws std::system_error when there is no socket.
  UdpEnd();

  std::uint16_t Port() const { return port; }
  // To that port of 127.0.0.1, whether or not somebody listens.
  void Send(std::uint16_t destination, const Bytes& datagram) const;
  // A datagram that has arrived, if one has.
  std::optional<Bytes> Receive() const;

 private:
  device::Descriptor socket;
  std::uint16_t port;
};

}  // namespace corvalint::soak
