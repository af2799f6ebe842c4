#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "device/descriptor.h"
#include "ports/free_udp_port.h"
#include "windows/support/bridge.h"

// Loopback OSC ports as their device and as desktop programs see them.
namespace corvalint::windows_test {

using test::FreeUdpPort;

// A desktop program with a UDP socket on 127.0.0.1. For one thread at a time.
class UdpProgram {
 public:
  // Throws std::system_error when the number is taken.
  explicit UdpProgram(std::uint16_t number = FreeUdpPort(), int receiveBuffer = 1 << 22);

  std::uint16_t Port() const { return port; }
  // Throws std::system_error when the system does not take the datagram.
  void Send(std::uint16_t to, const device::Bytes& datagram) const;
  // The next datagram, or nothing when time is up.
  std::optional<device::Bytes> Receive(std::chrono::milliseconds limit = kPatience);
  // Where the last datagram came from.
  std::uint16_t LastSender() const { return lastSender; }

 private:
  device::Descriptor socket;
  std::uint16_t port;
  std::uint16_t lastSender = 0;
  device::Bytes buffer;
};

// A UDP socket of any program, from the kernel's list.
struct KernelSocket {
  std::string address;        // dotted, the one that it is bound to
  std::uint64_t waiting = 0;  // bytes received and not read yet
  std::uint64_t dropped = 0;  // datagrams that found no room, since it was made
};
// The kernel's list comes in pieces: a socket can be missing when others come or go meanwhile.
std::vector<KernelSocket> UdpSocketsOn(std::uint16_t port);
// The one socket with this number, looked for until it is found. Throws when there is not one.
KernelSocket UdpSocketOn(std::uint16_t port);
// Looks until the condition holds; false when it does not within the tests' patience.
bool Await(const std::function<bool()>& condition);
// Until so many sockets are bound to the number.
bool WaitForUdpSockets(std::uint16_t port, std::size_t count);
// Until the one socket with this number has been read empty.
bool WaitUntilRead(std::uint16_t port);

// So many bytes in which a piece that is missing or moved shows.
device::Bytes CountingBytes(std::size_t size);

// Packets of a device.
device::Bytes CreatePacket(std::int32_t destination, std::int32_t bind, const std::string& host);
device::Bytes RemovePacket(std::int32_t destination, std::int32_t bind, const std::string& host);
device::Bytes DataPacket(const std::string& destinationKey, const device::Bytes& data);

// Whole frames to a device, put together by hand.
device::Bytes ReportFrame(const std::string& bindKey, std::uint32_t status);
device::Bytes DataFrame(const std::string& bindKey, const device::Bytes& data);

// The datagrams that a device was sent since its record was cleared, by the port's bind key.
std::vector<device::Bytes> DatagramsOf(const PluggedDevice& plugged, const std::string& bindKey);

// A port of a device, and the desktop program at its destination.
class OscPort {
 public:
  // Makes the program and picks its number, and sends nothing.
  explicit OscPort(PluggedDevice& device, std::uint16_t bindNumber = FreeUdpPort());

  // The packets that open and close it.
  device::Bytes CreateRequest() const;
  device::Bytes RemoveRequest() const;
  // Returns true when the port has reported itself ready.
  bool Create();
  // Returns true when its socket is closed.
  bool Remove();

  // One datagram from the program through the port; true once the device has it.
  bool ToDevice(const device::Bytes& data);
  // One from the device; true once the program has it, unchanged.
  bool ToProgram(const device::Bytes& data);

  UdpProgram& Program() { return program; }
  std::uint16_t Bind() const { return bind; }
  const std::string& BindKey() const { return bindKey; }
  const std::string& DestinationKey() const { return destinationKey; }

 private:
  PluggedDevice& plugged;
  UdpProgram program;
  std::uint16_t bind;
  std::string bindKey;
  std::string destinationKey;
};

}  // namespace corvalint::windows_test
