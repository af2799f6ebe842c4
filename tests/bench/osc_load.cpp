#include "bench/osc_load.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "bench/frames.h"
#include "ports/free_udp_port.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kPorts = 64;
// One after the other, so each port has some 50 a second. All at once they would take the processor
// of whoever sends the notes for as long as they last.
constexpr std::chrono::microseconds kBetween{312};
constexpr std::chrono::milliseconds kLatest{2};
constexpr const char* kHost = "127.0.0.1";
constexpr std::array<char, 200> kDatagram{};

sockaddr_in At(std::uint16_t number) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(number);
  return address;
}

// What finds no room is lost, as datagrams are.
void SendTo(int socket, std::uint16_t number) {
  const sockaddr_in address = At(number);
  sendto(socket, kDatagram.data(), kDatagram.size(), MSG_DONTWAIT,
         reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

std::string Key(std::uint16_t number) { return kHost + std::to_string(number); }

}  // namespace

UdpEnds::UdpEnds(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const int made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    numbers.push_back(test::FreeUdpPort());
    const sockaddr_in address = At(numbers.back());
    if (bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      GiveUp("a UDP socket got no number");
    }
    sockets.push_back(made);
  }
}

UdpEnds::~UdpEnds() {
  for (const int each : sockets) close(each);
}

std::size_t UdpEnds::Drain() const {
  char byte;
  std::size_t drained = 0;
  for (const int each : sockets) {
    while (recv(each, &byte, sizeof byte, MSG_DONTWAIT) >= 0) ++drained;
  }
  return drained;
}

OscTraffic::OscTraffic(const std::vector<std::uint16_t>& numbers, int stream,
                       const std::vector<std::vector<char>>& frames)
    : thread([this, &numbers, stream, &frames] { Run(numbers, stream, frames); }) {}

OscTraffic::~OscTraffic() {
  done = true;
  thread.join();
}

void OscTraffic::Run(const std::vector<std::uint16_t>& numbers, int stream,
                     const std::vector<std::vector<char>>& frames) const {
  prctl(PR_SET_TIMERSLACK, 1);
  const UdpEnds sender(1);
  std::size_t port = 0;
  auto next = std::chrono::steady_clock::now();
  for (; !done; port = (port + 1) % numbers.size()) {
    std::this_thread::sleep_until(next += kBetween);
    // What a busy machine did not let go out is not caught up with.
    next = std::max(next, std::chrono::steady_clock::now() - kLatest);
    SendTo(sender.Sockets().front(), numbers[port]);
    WriteAll(stream, frames[port].data(), frames[port].size());
  }
}

LibraryOscPorts::LibraryOscPorts(const Bridge& bridge, std::size_t device) : programs(kPorts) {
  const int stream = bridge.Link(device).device;
  Drain(stream);
  std::size_t expected = 0;
  for (const std::uint16_t program : programs.Numbers()) {
    numbers.push_back(test::FreeUdpPort());
    const auto create = CreateOscPortFrame(program, numbers.back(), kHost);
    WriteAll(stream, create.data(), create.size());
    expected += OscReportFrame(Key(numbers.back()), 1).size();
    frames.push_back(OscDataFrame(Key(program), kDatagram.data(), kDatagram.size()));
  }
  std::size_t reported = 0;
  Await("the OSC ports", [&] { return (reported += Drain(stream)) >= expected; });
}

BareOscPorts::BareOscPorts(const LibraryOscPorts& theLibrary) : library(theLibrary), ports(kPorts) {
  for (std::size_t i = 0; i < kPorts; ++i) threads.emplace_back([this, i] { ToStream(i); });
  threads.emplace_back([this] { FromStream(); });
}

// An end of the stream and of each socket wakes the thread that waits there.
BareOscPorts::~BareOscPorts() {
  shutdown(link.device, SHUT_RDWR);
  for (const int each : ports.Sockets()) shutdown(each, SHUT_RDWR);
  for (std::thread& each : threads) each.join();
}

void BareOscPorts::ToStream(std::size_t port) const {
  const std::vector<char> frame =
      OscDataFrame(Key(ports.Numbers()[port]), kDatagram.data(), kDatagram.size());
  char datagram[65536];
  while (recv(ports.Sockets()[port], datagram, sizeof datagram, 0) > 0) {
    WriteAll(link.library, frame.data(), frame.size());
  }
}

// The frames have one size, and come for one port after the other.
void BareOscPorts::FromStream() const {
  const std::size_t size = library.Frames().front().size();
  std::vector<char> buffer(65536);
  std::size_t port = 0;
  std::size_t pending = 0;
  for (;;) {
    const ssize_t count = recv(link.library, buffer.data(), buffer.size(), 0);
    if (count <= 0) return;
    for (pending += static_cast<std::size_t>(count); pending >= size; pending -= size) {
      SendTo(ports.Sockets()[port], library.Programs().Numbers()[port]);
      port = (port + 1) % kPorts;
    }
  }
}

}  // namespace corvalint::bench
