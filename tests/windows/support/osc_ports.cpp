#include "windows/support/osc_ports.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "device/loopback.h"
#include "windows/support/observers.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {

using device::Bytes;

namespace {

constexpr std::size_t kLongestDatagram = 65536;
constexpr const char* kLoopback = "127.0.0.1";

device::Descriptor UdpSocket() {
  device::Descriptor made(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!made.Open()) throw std::system_error(errno, std::generic_category(), "udp socket");
  return made;
}

bool Bind(const device::Descriptor& socket, std::uint16_t port) {
  const sockaddr_in address = device::Loopback(port);
  return bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

std::uint64_t FromHex(std::string_view text) {
  std::uint64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return value;
}

std::string Dotted(std::uint64_t inMemoryOrder) {
  in_addr address{};
  address.s_addr = static_cast<in_addr_t>(inMemoryOrder);
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

}  // namespace

UdpProgram::UdpProgram(std::uint16_t number, int receiveBuffer)
    : socket(UdpSocket()), port(number), buffer(kLongestDatagram) {
  setsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  if (!Bind(socket, port)) throw std::system_error(errno, std::generic_category(), "bind");
}

void UdpProgram::Send(std::uint16_t to, const Bytes& datagram) const {
  const sockaddr_in address = device::Loopback(to);
  const auto sent = sendto(socket.Get(), datagram.data(), datagram.size(), 0,
                           reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (sent != static_cast<ssize_t>(datagram.size())) {
    throw std::system_error(errno, std::generic_category(), "sendto");
  }
}

std::optional<Bytes> UdpProgram::Receive(std::chrono::milliseconds limit) {
  pollfd ready{.fd = socket.Get(), .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, static_cast<int>(limit.count())) != 1) return std::nullopt;
  sockaddr_in sender{};
  socklen_t size = sizeof sender;
  const auto received = recvfrom(socket.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&sender), &size);
  if (received < 0) return std::nullopt;
  lastSender = ntohs(sender.sin_port);
  return Bytes(buffer.begin(), buffer.begin() + received);
}

// Columns: number, local address, remote address, state, queues (sent:received), ..., drops last.
std::vector<KernelSocket> UdpSocketsOn(std::uint16_t port) {
  std::vector<KernelSocket> found;
  std::ifstream list("/proc/net/udp");
  std::string line;
  std::getline(list, line);
  while (std::getline(list, line)) {
    std::istringstream columns(line);
    std::vector<std::string> words;
    for (std::string word; columns >> word;) words.push_back(word);
    if (words.size() < 13) throw std::runtime_error("not a line of UDP sockets: " + line);
    const std::string& local = words[1];
    const std::size_t colon = local.find(':');
    if (FromHex(std::string_view(local).substr(colon + 1)) != port) continue;
    const std::string& queues = words[4];
    found.push_back({Dotted(FromHex(std::string_view(local).substr(0, colon))),
                     FromHex(std::string_view(queues).substr(queues.find(':') + 1)),
                     std::stoull(words.back())});
  }
  return found;
}

bool Await(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

bool WaitForUdpSockets(std::uint16_t port, std::size_t count) {
  return Await([&] { return UdpSocketsOn(port).size() == count; });
}

KernelSocket UdpSocketOn(std::uint16_t port) {
  std::vector<KernelSocket> found;
  const auto isThere = [&] {
    found = UdpSocketsOn(port);
    return found.size() == 1;
  };
  if (!Await(isThere)) throw std::runtime_error("not one UDP socket on " + std::to_string(port));
  return found[0];
}

bool WaitUntilRead(std::uint16_t port) {
  return Await([&] {
    const auto sockets = UdpSocketsOn(port);
    return sockets.size() == 1 && sockets[0].waiting == 0;
  });
}

Bytes CountingBytes(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
  return bytes;
}

Bytes CreatePacket(std::int32_t destination, std::int32_t bind, const std::string& host) {
  return device::EncodeMessage({"/osc/create_port", "", {destination, bind, host}});
}

Bytes RemovePacket(std::int32_t destination, std::int32_t bind, const std::string& host) {
  return device::EncodeMessage({"/osc/remove_port", "", {destination, bind, host}});
}

Bytes DataPacket(const std::string& destinationKey, const Bytes& data) {
  return device::EncodeMessage({"/osc", "", {destinationKey, data}});
}

Bytes ReportFrame(const std::string& bindKey, std::uint32_t status) {
  return Framed({OscText("/osc/port_creation_report"), OscText(",si"), OscText(bindKey),
                 BigEndian(status, 4)});
}

Bytes DataFrame(const std::string& bindKey, const Bytes& data) {
  return Framed(
      {OscText("/osc"), OscText(",sb"), OscText(bindKey), BigEndian(data.size(), 4), Filled(data)});
}

std::vector<Bytes> DatagramsOf(const PluggedDevice& plugged, const std::string& bindKey) {
  std::vector<Bytes> list;
  for (const auto& received : plugged.App().Record().MessagesTo("/osc")) {
    if (received.message.Argument<std::string>(0) == bindKey) {
      list.push_back(received.message.Argument<Bytes>(1));
    }
  }
  return list;
}

OscPort::OscPort(PluggedDevice& device, std::uint16_t bindNumber)
    : plugged(device),
      bind(bindNumber),
      bindKey(kLoopback + std::to_string(bind)),
      destinationKey(kLoopback + std::to_string(program.Port())) {}

Bytes OscPort::CreateRequest() const { return CreatePacket(program.Port(), bind, kLoopback); }

Bytes OscPort::RemoveRequest() const { return RemovePacket(program.Port(), bind, kLoopback); }

bool OscPort::Create() {
  const auto reports = [this](const device::DeviceRecord::Messages& messages) {
    return std::count_if(messages.begin(), messages.end(), [this](const auto& received) {
      const device::OscMessage& message = received.message;
      return message.address == "/osc/port_creation_report" &&
             message.template Argument<std::string>(0) == bindKey &&
             message.template Argument<std::int32_t>(1) == 1;
    });
  };
  std::ptrdiff_t before = 0;
  const device::DeviceRecord& record = plugged.App().Record();
  record.WaitFor([&](const auto& messages) { return before = reports(messages), true; }, {});
  return plugged.App().SendPacket(CreateRequest()) &&
         record.WaitFor([&](const auto& messages) { return reports(messages) > before; },
                        kPatience);
}

bool OscPort::Remove() {
  return plugged.App().SendPacket(RemoveRequest()) && WaitForUdpSockets(bind, 0);
}

bool OscPort::ToDevice(const Bytes& data) {
  const std::size_t before = DatagramsOf(plugged, bindKey).size();
  program.Send(bind, data);
  return Await([&] {
    const auto all = DatagramsOf(plugged, bindKey);
    return std::find(all.begin() + static_cast<std::ptrdiff_t>(before), all.end(), data) !=
           all.end();
  });
}

bool OscPort::ToProgram(const Bytes& data) {
  return plugged.App().SendPacket(DataPacket(destinationKey, data)) && program.Receive() == data;
}

}  // namespace corvalint::windows_test
