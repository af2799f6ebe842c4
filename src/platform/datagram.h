#pragma once

#include <cstdint>
#include <string>

#include "platform/seam.h"

namespace corvalint {

// UDP over IPv4. A socket is a positive number as in socket.h, whose wait, waker, close and
// lastError serve here too. Nothing here blocks.
struct DatagramApi {
  // A new socket, not inherited by child processes; below 1 when none could be had. A send that
  // nobody listens to does not make a later receive fail.
  int (*open)();
  // Binds to 127.0.0.1 at that port, 0 for a free one; 0 or -1.
  int (*bindLoopback)(int socket, std::uint16_t port);
  // Bytes of one datagram, 0 included, or -1. The sender is not told.
  int (*receive)(int socket, void* data, int size);
  // `address` in network byte order; bytes sent or -1.
  int (*send)(int socket, const void* data, int size, std::uint32_t address, std::uint16_t port);
  // Reads a dotted IPv4 address, byte by byte, into network byte order; false, and an address of 0,
  // when the text is none.
  bool (*parseAddress)(const std::string& text, std::uint32_t* address);

  static const DatagramApi& System();
};

}  // namespace corvalint
