#include "platform/socket.h"

#include "platform/windows/datagram_socket.h"

namespace corvalint {
namespace {

int StartUp() {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data);
}

// Takes every waiting byte, so that any number of signals before it count as one.
void Drain(int waker) {
  char bytes[64];
  while (recv(Native(waker), bytes, sizeof bytes, 0) > 0) {
  }
}

// A set with the socket in it, or an empty one.
fd_set SetOf(int socket) {
  fd_set set;
  FD_ZERO(&set);
  if (socket > 0) {
    set.fd_array[0] = Native(socket);
    set.fd_count = 1;
  }
  return set;
}

bool Contains(fd_set& set, int socket) { return socket > 0 && FD_ISSET(Native(socket), &set) != 0; }

SocketReadiness Wait(int socket, bool wantWritable, int waker) {
  fd_set reading = SetOf(socket);
  if (waker > 0) reading.fd_array[reading.fd_count++] = Native(waker);
  fd_set failing = SetOf(socket);
  fd_set writing = SetOf(wantWritable ? socket : 0);
  SocketReadiness seen;
  if (select(0, &reading, &writing, &failing, nullptr) == SOCKET_ERROR) {
    seen.failed = true;
    return seen;
  }
  seen.readable = Contains(reading, socket);
  seen.exceptional = Contains(failing, socket);
  seen.writable = Contains(writing, socket);
  if (Contains(reading, waker)) {
    Drain(waker);
    seen.woken = true;
  }
  return seen;
}

int Receive(int socket, void* data, int size) {
  return recv(Native(socket), static_cast<char*>(data), size, 0);
}

int Send(int socket, const void* data, int size) {
  return send(Native(socket), static_cast<const char*>(data), size, 0);
}

int SetNonBlocking(int socket) {
  u_long on = 1;
  return ioctlsocket(Native(socket), static_cast<long>(FIONBIO), &on);
}

int SetNoDelay(int socket) {
  const BOOL on = TRUE;
  return setsockopt(Native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
                    sizeof on);
}

int Shutdown(int socket) { return shutdown(Native(socket), SD_BOTH); }

int Close(int socket) { return closesocket(Native(socket)); }

SocketError LastError() {
  switch (WSAGetLastError()) {
    case 0:
      return SocketError::none;
    case WSAEWOULDBLOCK:
      return SocketError::wouldBlock;
    case WSAEINTR:
      return SocketError::interrupted;
    default:
      return SocketError::other;
  }
}

// Binds a datagram socket to a free loopback port and connects it to itself: only its own bytes
// reach it.
bool ConnectToItself(SOCKET socket) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof address;
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  return bind(socket, name, size) == 0 && getsockname(socket, name, &size) == 0 &&
         connect(socket, name, size) == 0;
}

int OpenWaker() {
  const int waker = OpenDatagramSocket();
  if (waker < 0) return 0;
  if (!ConnectToItself(Native(waker))) {
    closesocket(Native(waker));
    return 0;
  }
  return waker;
}

// A full buffer loses the byte, and then a signal is waiting already.
void Wake(int waker) {
  const char byte = 1;
  if (waker > 0) send(Native(waker), &byte, 1, 0);
}

void CloseWaker(int waker) {
  if (waker > 0) closesocket(Native(waker));
}

std::uint16_t ToNetworkOrder(std::uint16_t value) { return htons(value); }

}  // namespace

const SocketApi& SocketApi::System() {
  static constexpr SocketApi table{
      .startUp = StartUp,
      .wait = Wait,
      .receive = Receive,
      .send = Send,
      .setNonBlocking = SetNonBlocking,
      .setNoDelay = SetNoDelay,
      .shutdown = Shutdown,
      .close = Close,
      .lastError = LastError,
      .openWaker = OpenWaker,
      .wake = Wake,
      .closeWaker = CloseWaker,
      .toNetworkOrder = ToNetworkOrder,
  };
  return table;
}

}  // namespace corvalint
