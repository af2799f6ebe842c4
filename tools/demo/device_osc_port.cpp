#include "demo/device_osc_port.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "demo/udp_socket.h"
#include "demo/waiting.h"

namespace corvalint::demo {

namespace {

constexpr std::int32_t kReady = 1;

const std::string& Host() {
  static const std::string host = "127.0.0.1";
  return host;
}

device::Bytes PortMessage(const char* address, std::uint16_t destination, std::uint16_t port) {
  return device::EncodeMessage(
      {address, {}, {std::int32_t{destination}, std::int32_t{port}, Host()}});
}

}  // namespace

DeviceOscPort::DeviceOscPort(Scenario& stage, std::uint16_t programsPort)
    : scenario(stage),
      port(FreeUdpPort()),
      destination(programsPort),
      receivingKey(Host() + std::to_string(port)),
      sendingKey(Host() + std::to_string(destination)) {
  if (!scenario.IPad().app.SendPacket(PortMessage("/osc/create_port", destination, port))) {
    throw std::runtime_error("the iPad lost its connection");
  }
  Await("the iPad's OSC port",
        [this](std::chrono::milliseconds time) { return ReportedReady(time); });
}

DeviceOscPort::~DeviceOscPort() {
  // Without a connection the port is closed already.
  scenario.IPad().app.SendPacket(PortMessage("/osc/remove_port", destination, port));
}

bool DeviceOscPort::ReportedReady(std::chrono::milliseconds time) {
  const auto matches = [this](const device::ReceivedMessage& received) {
    const device::OscMessage& message = received.message;
    return message.address == "/osc/port_creation_report" && message.typeTags == "si" &&
           message.Argument<std::string>(0) == receivingKey &&
           message.Argument<std::int32_t>(1) == kReady;
  };
  return scenario.IPad().app.Record().WaitFor(
      [&](const device::DeviceRecord::Messages& messages) {
        return std::any_of(messages.begin(), messages.end(), matches);
      },
      time);
}

void DeviceOscPort::Send(const device::Bytes& datagram) {
  if (scenario.IPad().app.SendPacket(device::EncodeMessage({"/osc", {}, {sendingKey, datagram}}))) {
    return;
  }
  CheckInterrupted();
  throw std::runtime_error("the iPad lost its connection while it sent OSC");
}

}  // namespace corvalint::demo
