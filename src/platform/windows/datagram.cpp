#include "platform/datagram.h"

// The sockets' header stands before those that build on it.
#include "platform/windows/datagram_socket.h"

#include <mswsock.h>
#include <ws2tcpip.h>

namespace corvalint {
namespace {

// A burst must find room while the reader is busy, and a large datagram must not have to wait.
constexpr int kSocketBuffer = 1 << 20;

sockaddr_in Address(std::uint32_t address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = address;
  result.sin_port = htons(port);
  return result;
}

// Without this an answer that nobody listens at an earlier send's destination would be the result
// of a later receive.
void IgnoreRefusedSends(SOCKET socket) {
  BOOL off = FALSE;
  DWORD written = 0;
  WSAIoctl(socket, SIO_UDP_CONNRESET, &off, sizeof off, nullptr, 0, &written, nullptr, nullptr);
}

int Open() {
  const int made = OpenDatagramSocket();
  if (made < 0) return made;
  IgnoreRefusedSends(Native(made));
  const auto* const size = reinterpret_cast<const char*>(&kSocketBuffer);
  setsockopt(Native(made), SOL_SOCKET, SO_RCVBUF, size, sizeof kSocketBuffer);
  setsockopt(Native(made), SOL_SOCKET, SO_SNDBUF, size, sizeof kSocketBuffer);
  return made;
}

int BindLoopback(int socket, std::uint16_t port) {
  const sockaddr_in local = Address(htonl(INADDR_LOOPBACK), port);
  return bind(Native(socket), reinterpret_cast<const sockaddr*>(&local), sizeof local);
}

int Receive(int socket, void* data, int size) {
  return recvfrom(Native(socket), static_cast<char*>(data), size, 0, nullptr, nullptr);
}

int Send(int socket, const void* data, int size, std::uint32_t address, std::uint16_t port) {
  const sockaddr_in remote = Address(address, port);
  return sendto(Native(socket), static_cast<const char*>(data), size, 0,
                reinterpret_cast<const sockaddr*>(&remote), sizeof remote);
}

// The text is widened byte by byte, so a byte above 127 is a letter that no address has.
bool ParseAddress(const std::string& text, std::uint32_t* address) {
  std::wstring wide;
  wide.reserve(text.size());
  for (const char byte : text) wide.push_back(static_cast<unsigned char>(byte));
  in_addr parsed{};
  const bool isAddress = InetPtonW(AF_INET, wide.c_str(), &parsed) == 1;
  *address = isAddress ? parsed.s_addr : 0;
  return isAddress;
}

}  // namespace

const DatagramApi& DatagramApi::System() {
  static constexpr DatagramApi table{.open = Open,
                                     .bindLoopback = BindLoopback,
                                     .receive = Receive,
                                     .send = Send,
                                     .parseAddress = ParseAddress};
  return table;
}

}  // namespace corvalint
