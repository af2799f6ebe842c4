#pragma once

#include <cstdint>
#include <string>

#include "demo/scenario.h"

namespace corvalint::demo {

// A loopback OSC port of the desktop that the iPad has opened through the DLL: what programs send
// to it reaches the iPad, what the iPad sends through it goes to one program. Closed with this
// object. For one thread.
class DeviceOscPort {
 public:
  // Returns when the DLL has reported it ready. Throws std::runtime_error when it does not.
  DeviceOscPort(Scenario& stage, std::uint16_t programsPort);
  ~DeviceOscPort();
  DeviceOscPort(const DeviceOscPort&) = delete;
  DeviceOscPort& operator=(const DeviceOscPort&) = delete;

  // On 127.0.0.1.
  std::uint16_t Port() const { return port; }
  // What the port calls itself in what the iPad receives.
  const std::string& ReceivingKey() const { return receivingKey; }
  // From the iPad to the program. Throws std::runtime_error when the iPad is not connected.
  void Send(const device::Bytes& datagram);

 private:
  bool ReportedReady(std::chrono::milliseconds time);

  Scenario& scenario;
  const std::uint16_t port;
  const std::uint16_t destination;
  const std::string receivingKey;
  const std::string sendingKey;  // what the iPad calls the port
};

}  // namespace corvalint::demo
