#include "support/udp_program.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "device/loopback.h"

namespace corvalint::test {

namespace {

constexpr int kTimeOutMilliseconds = 30000;

int BoundSocket(std::uint16_t port) {
  const int made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  EXPECT_GT(made, 0);
  const sockaddr_in address = device::Loopback(port);
  if (bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return made;
  close(made);
  return -1;
}

std::string AddressText(in_addr address) {
  char text[INET_ADDRSTRLEN] = "";
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

}  // namespace

UdpProgram::UdpProgram() : socket(BoundSocket(0)) {
  EXPECT_GT(socket, 0);
  port = StateOfSocket(socket).port;
}

UdpProgram::~UdpProgram() { close(socket); }

void UdpProgram::Send(std::uint16_t destination, const std::string& bytes) const {
  const sockaddr_in address = device::Loopback(destination);
  EXPECT_EQ(sendto(socket, bytes.data(), bytes.size(), 0,
                   reinterpret_cast<const sockaddr*>(&address), sizeof address),
            static_cast<ssize_t>(bytes.size()));
}

std::string UdpProgram::Receive() const {
  pollfd polled{socket, POLLIN, 0};
  std::string bytes(65536, '\0');
  if (poll(&polled, 1, kTimeOutMilliseconds) != 1) {
    ADD_FAILURE() << "no datagram came";
    return "nothing came";
  }
  const ssize_t got = recv(socket, bytes.data(), bytes.size(), 0);
  EXPECT_GE(got, 0);
  bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return bytes;
}

bool UdpProgram::Silent() const {
  pollfd polled{socket, POLLIN, 0};
  return poll(&polled, 1, 0) == 0;
}

UdpSocketState StateOfSocket(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
  return {AddressText(address.sin_addr), ntohs(address.sin_port), 0, 0};
}

std::optional<UdpSocketState> StateOfUdpPort(std::uint16_t port) {
  std::ifstream table("/proc/net/udp");
  std::string line;
  std::getline(table, line);  // the heads of the columns
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string place, local, remote, state, queues, ignored;
    columns >> place >> local >> remote >> state >> queues;
    std::uint64_t drops = 0;
    for (int i = 0; i < 7; ++i) columns >> ignored;
    columns >> drops;
    EXPECT_FALSE(columns.fail()) << line;
    in_addr address{static_cast<in_addr_t>(std::stoul(local.substr(0, 8), nullptr, 16))};
    const auto number = static_cast<std::uint16_t>(std::stoul(local.substr(9), nullptr, 16));
    if (number != port) continue;
    const std::uint64_t waiting = std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16);
    return UdpSocketState{AddressText(address), number, waiting, drops};
  }
  return std::nullopt;
}

UdpSocketState StateOfBoundPort(std::uint16_t port) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    if (const auto state = StateOfUdpPort(port)) return *state;
  }
  ADD_FAILURE() << "nobody has UDP port " << port;
  return {};
}

}  // namespace corvalint::test
