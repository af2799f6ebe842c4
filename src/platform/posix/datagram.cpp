#include "platform/datagram.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvalint {
namespace {

// A burst must find room while the reader is busy; the system may grant less.
constexpr int kReceiveBuffer = 1 << 20;

sockaddr_in Address(std::uint32_t address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = address;
  result.sin_port = htons(port);
  return result;
}

int Open() {
  const int made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_UDP);
  if (made == 0) close(made);  // means "none" here
  if (made < 1) return made;
  setsockopt(made, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  return made;
}

int BindLoopback(int socket, std::uint16_t port) {
  const sockaddr_in local = Address(htonl(INADDR_LOOPBACK), port);
  return bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local);
}

int Receive(int socket, void* data, int size) {
  return static_cast<int>(
      recvfrom(socket, data, static_cast<std::size_t>(size), 0, nullptr, nullptr));
}

int Send(int socket, const void* data, int size, std::uint32_t address, std::uint16_t port) {
  const sockaddr_in remote = Address(address, port);
  return static_cast<int>(sendto(socket, data, static_cast<std::size_t>(size), MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&remote), sizeof remote));
}

bool ParseAddress(const std::string& text, std::uint32_t* address) {
  in_addr parsed{};
  const bool isAddress = inet_pton(AF_INET, text.c_str(), &parsed) == 1;
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
