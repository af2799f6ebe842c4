#pragma once

#include <cstdint>
#include <string>

#include "platform/seam.h"

namespace corvalint {

// UDP over IPv4. A socket is a positive number as in socket.h, whose wait, waker, close and
// lastError serve here too; it belongs to whoever opened it. Nothing here blocks. Any thread.
struct DatagramApi {
  // A new socket, not inherited by child processes; below 1 when none could be had. A send that
  // nobody listens to does not make a later receive fail.
  int (*open)();
  // Binds to 127.0.0.1 at that port, 0 for a free one. 0, or -1 when that failed.
  int (*bindLoopback)(int socket, std::uint16_t port);
  // Bytes of one datagram, 0 included; -1 when none is there, or on failure. What does not fit
  // `size` is lost. Who sent it is not told.
  int (*receive)(int socket, void* data, int size);
  // Sends one datagram; `address` is in network byte order, `port` in the machine's. Bytes sent, or
  // -1 on failure.
  int (*send)(int socket, const void* data, int size, std::uint32_t address, std::uint16_t port);
  // Reads a dotted IPv4 address, byte by byte, into network byte order; false, and an address of 0,
  // when the text is none.
  bool (*parseAddress)(const std::string& text, std::uint32_t* address);

  static const DatagramApi& System();
};

}  // namespace corvalint
