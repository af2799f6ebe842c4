#pragma once

#include <limits>

#include "platform/windows/system_headers.h"

namespace corvalint {

// Handle values have 32 significant bits, so a positive number holds one without loss.
inline SOCKET Native(int socket) { return static_cast<SOCKET>(static_cast<unsigned>(socket)); }

// A non-blocking UDP socket that no child process inherits, or -1. Without the overlapped flag a
// send would have to wait for another thread's wait on the same socket.
inline int OpenDatagramSocket() {
  const SOCKET socket = WSASocketW(AF_INET, SOCK_DGRAM, IPPROTO_UDP, nullptr, 0,
                                   WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (socket == INVALID_SOCKET) return -1;
  u_long on = 1;
  if (socket > static_cast<SOCKET>(std::numeric_limits<int>::max()) ||
      ioctlsocket(socket, static_cast<long>(FIONBIO), &on) != 0) {
    closesocket(socket);
    return -1;
  }
  return static_cast<int>(socket);
}

}  // namespace corvalint
