#pragma once

#include <cstdint>

#include "device/descriptor.h"
#include "harness/desk_types.h"

namespace corvalint::demo {

// A UDP socket on 127.0.0.1 at a port that was free. Throws std::system_error when something is
// refused.
class UdpSocket {
 public:
  UdpSocket();

  std::uint16_t Port() const { return port; }
  // To that port of 127.0.0.1.
  void Send(std::uint16_t destination, const harness::Bytes& datagram);

 private:
  device::Descriptor descriptor;
  std::uint16_t port = 0;
};

// A port that nobody has on 127.0.0.1 right now.
std::uint16_t FreeUdpPort();

}  // namespace corvalint::demo
