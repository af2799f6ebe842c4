#include "fuzz/support/port_driver.h"

#include <algorithm>
#include <utility>

#include "fuzz/support/check.h"

namespace corvalint::fuzz {

namespace {

constexpr std::uint32_t kMaximumSysex = 65535;

std::uintptr_t Number(VirtualMidiHandle handle) { return reinterpret_cast<std::uintptr_t>(handle); }

VirtualMidiHandle Create(const char16_t* name, VirtualMidiCallback callback,
                         std::uintptr_t instance, std::uint32_t maxSysex, std::uint32_t flags) {
  PortDriver& driver = ThePortDriver();
  Check(maxSysex == kMaximumSysex && flags == kVirtualMidiParseReceived, "how a port is made");
  std::string bytes;
  for (; *name != 0; ++name) {
    Check(*name < 256, "a name beyond Latin-1");
    bytes += static_cast<char>(*name);
  }
  Check(bytes.size() <= 31, "a name that is too long for the desktop");
  if (driver.refuses) return nullptr;
  for (const PortDriver::Port& port : driver.ports) {
    if (port.open && port.name == bytes) return nullptr;
  }
  driver.ports.push_back({std::move(bytes), true, callback, instance});
  return reinterpret_cast<VirtualMidiHandle>(driver.ports.size());
}

std::int32_t Send(VirtualMidiHandle handle, const std::uint8_t* data, std::uint32_t length) {
  PortDriver& driver = ThePortDriver();
  const std::uintptr_t number = Number(handle);
  Check(number <= driver.ports.size(), "a port that was never made");
  Check(number == 0 || driver.ports[number - 1].open, "bytes for a closed port");
  driver.sent.push_back({number, std::string(reinterpret_cast<const char*>(data), length)});
  return number != 0 ? 1 : 0;
}

void Close(VirtualMidiHandle handle) {
  PortDriver& driver = ThePortDriver();
  const std::uintptr_t number = Number(handle);
  Check(number != 0 && number <= driver.ports.size(), "a port that was never made");
  Check(std::exchange(driver.ports[number - 1].open, false), "a port closed twice");
}

const VirtualMidiApi kDriver{
    .virtualMIDICreatePortEx2 = Create, .virtualMIDISendData = Send, .virtualMIDIClosePort = Close};

}  // namespace

std::vector<std::string> PortDriver::OpenNames() const {
  std::vector<std::string> names;
  for (const Port& port : ports) {
    if (port.open) names.push_back(port.name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void PortDriver::Write(std::uintptr_t handle, std::string bytes) {
  const Port& port = ports[handle - 1];
  Check(port.open, "a desktop program writes into a closed port");
  port.callback(reinterpret_cast<VirtualMidiHandle>(handle),
                reinterpret_cast<std::uint8_t*>(bytes.data()),
                static_cast<std::uint32_t>(bytes.size()), port.instance);
}

void PortDriver::Reset() {
  Check(OpenNames().empty(), "a port that nobody closed");
  ports.clear();
  sent.clear();
  refuses = false;
}

PortDriver& ThePortDriver() {
  static PortDriver* const driver = [] {
    Install<VirtualMidiApi>(&kDriver);
    return new PortDriver;
  }();
  return *driver;
}

}  // namespace corvalint::fuzz
