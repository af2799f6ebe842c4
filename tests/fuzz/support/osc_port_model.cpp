// The loopback OSC ports of the device model.

#include <algorithm>

#include "fuzz/support/device_model.h"
#include "fuzz/support/osc_build.h"

namespace corvalint::fuzz {

namespace {

constexpr std::size_t kLongestReport = 4096;

}  // namespace

std::shared_ptr<ModelOscPort> DeviceModel::FindOscPort(std::size_t device,
                                                       const std::string& key) const {
  for (const auto& port : devices[device].oscPorts) {
    if (port->destinationKey == key) return port;
  }
  return nullptr;
}

void DeviceModel::CreateOscPort(std::size_t device, std::int32_t destinationPort,
                                std::int32_t bindPort, const std::string& host,
                                bool threadsRefused) {
  const std::string destinationKey = host + std::to_string(destinationPort);
  const std::string bindKey = host + std::to_string(bindPort);
  std::shared_ptr<ModelOscPort> known = FindOscPort(device, destinationKey);
  for (const auto& port : devices[device].oscPorts) {
    if (known == nullptr && port->bindKey == bindKey) known = port;
  }
  if (known != nullptr) {
    known->fresh = false;
    return;
  }
  const auto port = std::make_shared<ModelOscPort>(
      ModelOscPort{device, destinationPort, bindPort, host, destinationKey, bindKey});
  devices[device].oscPorts.push_back(port);
  if (threadsRefused) {
    port->life = ModelOscPort::Life::neverStarted;
  } else {
    waiting.push_back(port);
  }
}

void DeviceModel::Stop(ModelOscPort& port) { port.stopped = true; }

void DeviceModel::RemoveOscPort(std::size_t device, std::int32_t destinationPort,
                                const std::string& host) {
  const auto port = FindOscPort(device, host + std::to_string(destinationPort));
  if (port == nullptr) return;
  auto& ports = devices[device].oscPorts;
  ports.erase(std::find(ports.begin(), ports.end(), port));
  Stop(*port);
}

void DeviceModel::StopOscPorts(std::size_t device) {
  for (const auto& port : devices[device].oscPorts) Stop(*port);
  devices[device].oscPorts.clear();
}

void DeviceModel::ReportOscPort(std::size_t device, const std::string& key, std::int32_t status) {
  if (const auto port = FindOscPort(device, key)) port->reported = status;
}

void DeviceModel::SendThroughOscPort(std::size_t device, const std::string& key,
                                     const std::string& bytes) {
  const auto port = FindOscPort(device, key);
  if (port == nullptr) return;
  const std::uint32_t address = Wire::AddressOf(port->host);
  if (port->life == ModelOscPort::Life::running && address != 0) {
    effects.datagrams.push_back(
        {bytes, address, static_cast<std::uint16_t>(port->destinationPort)});
  } else {
    effects.error += "sendto() failed\n";
  }
}

// A report that fits no packet is not made.
void DeviceModel::ReportToDevice(const ModelOscPort& port, std::int32_t status) {
  const std::string packet =
      OscBuilder("/osc/port_creation_report").Text(port.bindKey).Int32(status).Packet();
  if (packet.size() <= kLongestReport) effects.packets[port.device].push_back(packet);
}

bool DeviceModel::BeginOscThread(ModelOscPort& port, int socketFailures) {
  for (; socketFailures > 0; --socketFailures) {
    ReportToDevice(port, 3);
    const int made = (socketFailures - 1) % 2 == 0 ? 0 : -1;
    effects.console += "error creating socket || error: " + std::to_string(made) + "\n";
    if (port.stopped) return false;
  }
  ReportToDevice(port, 1);
  if (port.stopped) return false;
  port.life = ModelOscPort::Life::running;
  return true;
}

void DeviceModel::ReceiveDatagram(const ModelOscPort& port, const std::string& bytes) {
  effects.packets[port.device].push_back(
      OscBuilder("/osc").Text(port.bindKey).Blob(bytes).Packet());
}

void DeviceModel::EndOscThread(ModelOscPort& port) {
  port.life = ModelOscPort::Life::ended;
  effects.console += "Finished\n";
}

}  // namespace corvalint::fuzz
