#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ports/free_udp_port.h"

namespace corvalint::test {

// A program of the desktop that speaks UDP: a socket on 127.0.0.1, at a free port. What takes
// longer than a generous time-out fails the test.
class UdpProgram {
 public:
  UdpProgram();
  ~UdpProgram();
  UdpProgram(const UdpProgram&) = delete;
  UdpProgram& operator=(const UdpProgram&) = delete;

  std::uint16_t Port() const { return port; }
  // One datagram to that port of 127.0.0.1.
  void Send(std::uint16_t destination, const std::string& bytes) const;
  // The next datagram.
  std::string Receive() const;
  // Whether nothing is there to be read at the moment.
  bool Silent() const;

 private:
  int socket;
  std::uint16_t port = 0;
};

// What the system knows of a UDP socket.
struct UdpSocketState {
  std::string address;        // where it is bound, "127.0.0.1"
  std::uint16_t port = 0;     // 0 while it is not bound
  std::uint64_t waiting = 0;  // bytes that can be read
  std::uint64_t drops = 0;    // datagrams that found its buffer full
};

// By its descriptor.
UdpSocketState StateOfSocket(int socket);
// Of the one that is bound to that number; none when nobody has it.
// The system's list comes in pieces: a socket can be missing when others come or go meanwhile.
std::optional<UdpSocketState> StateOfUdpPort(std::uint16_t port);
// Of one that is there, looked for until it is found.
UdpSocketState StateOfBoundPort(std::uint16_t port);

}  // namespace corvalint::test
