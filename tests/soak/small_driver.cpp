#include "soak/small_driver.h"

#include <atomic>
#include <iterator>

#include "soak/complaints.h"

namespace corvalint::soak {

namespace {
std::atomic<SmallDriver*> current{nullptr};
}  // namespace

struct SmallDriver::Port {
  VirtualMidiHandle handle = nullptr;
  std::string name;
  VirtualMidiCallback callback = nullptr;
  std::uintptr_t instance = 0;
  int callbacksRunning = 0;
  bool closing = false;
};

SmallDriver::SmallDriver() {
  static constexpr VirtualMidiApi kTable{.virtualMIDICreatePortEx2 = Create,
                                         .virtualMIDISendData = Send,
                                         .virtualMIDIClosePort = Close};
  current = this;
  Install<VirtualMidiApi>(&kTable);
}

SmallDriver::~SmallDriver() {
  Install<VirtualMidiApi>(nullptr);
  current = nullptr;
}

VirtualMidiHandle SmallDriver::Create(const char16_t* name, VirtualMidiCallback callback,
                                      std::uintptr_t instance, std::uint32_t /*maximumSysex*/,
                                      std::uint32_t /*flags*/) {
  std::string narrow;
  for (; *name != 0; ++name) narrow += static_cast<char>(*name);
  SmallDriver& driver = *current;
  const std::lock_guard hold(driver.mutex);
  for (const auto& [handle, port] : driver.ports) {
    if (port->name == narrow) return nullptr;
  }
  const auto port = std::make_shared<Port>();
  port->handle = reinterpret_cast<VirtualMidiHandle>(++driver.lastHandle);
  port->name = std::move(narrow);
  port->callback = callback;
  port->instance = instance;
  driver.ports.emplace(port->handle, port);
  return port->handle;
}

// Only a port that was refused is sent to without a handle.
std::int32_t SmallDriver::Send(VirtualMidiHandle handle, const std::uint8_t* data,
                               std::uint32_t length) {
  if (handle == nullptr) return 0;
  SmallDriver& driver = *current;
  const std::lock_guard hold(driver.mutex);
  if (driver.ports.count(handle) == 0) {
    Complain("bytes were sent into a closed port");
    return 0;
  }
  driver.sent.Saw(data, length);
  return 1;
}

void SmallDriver::Close(VirtualMidiHandle handle) {
  SmallDriver& driver = *current;
  std::unique_lock hold(driver.mutex);
  const auto found = driver.ports.find(handle);
  if (found == driver.ports.end()) return Complain("a port was closed twice");
  const PortPointer port = found->second;
  port->closing = true;
  driver.callbackEnded.wait(hold, [&] { return port->callbacksRunning == 0; });
  driver.ports.erase(handle);
}

void SmallDriver::RunCallback(Port& port, Bytes& bytes) {
  port.callback(port.handle, bytes.data(), static_cast<std::uint32_t>(bytes.size()), port.instance);
  const std::lock_guard hold(mutex);
  --port.callbacksRunning;
  callbackEnded.notify_all();
}

bool SmallDriver::Write(std::uint64_t pick, Bytes bytes) {
  PortPointer port;
  {
    const std::lock_guard hold(mutex);
    if (ports.empty()) return false;
    port = std::next(ports.begin(), static_cast<std::ptrdiff_t>(pick % ports.size()))->second;
    if (port->closing) return false;
    ++port->callbacksRunning;
  }
  RunCallback(*port, bytes);
  return true;
}

bool SmallDriver::WriteTo(const std::string& name, Bytes bytes) {
  PortPointer port;
  {
    const std::lock_guard hold(mutex);
    for (const auto& [handle, candidate] : ports) {
      if (candidate->name == name && !candidate->closing) port = candidate;
    }
    if (port == nullptr) return false;
    ++port->callbacksRunning;
  }
  RunCallback(*port, bytes);
  return true;
}

std::vector<std::string> SmallDriver::Names() const {
  const std::lock_guard hold(mutex);
  std::vector<std::string> names;
  for (const auto& [handle, port] : ports) names.push_back(port->name);
  return names;
}

}  // namespace corvalint::soak
