#include "ports/virtual_midi_port.h"

#include <exception>
#include <map>
#include <utility>

#include "platform/process.h"
#include "service/host_time.h"
#include "service/immortal.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr std::size_t kLongestPublishedName = 31;  // in bytes as the device gives them
constexpr std::uint32_t kMaximumSysex = 65535;

// The ports that the driver may still call back for, by the number that it was given for each.
class LivePorts {
 public:
  std::uintptr_t NextInstance() { return ++lastInstance; }

  void Add(std::uintptr_t instance, std::shared_ptr<VirtualMidiPort> port)
      CORVALINT_EXCLUDES(lock) {
    CriticalSectionScope hold(lock);
    ports.emplace(instance, std::move(port));
  }
  void Remove(std::uintptr_t instance) CORVALINT_EXCLUDES(lock) {
    std::shared_ptr<VirtualMidiPort> last;  // destroyed after the lock is left
    CriticalSectionScope hold(lock);
    const auto entry = ports.find(instance);
    if (entry == ports.end()) return;
    last = std::move(entry->second);
    ports.erase(entry);
  }
  std::shared_ptr<VirtualMidiPort> Find(std::uintptr_t instance) CORVALINT_EXCLUDES(lock) {
    CriticalSectionScope hold(lock);
    const auto entry = ports.find(instance);
    return entry == ports.end() ? nullptr : entry->second;
  }

 private:
  CriticalSection lock;
  std::map<std::uintptr_t, std::shared_ptr<VirtualMidiPort>> ports CORVALINT_GUARDED_BY(lock);
  std::atomic<std::uintptr_t> lastInstance{0};
};

LivePorts& TheLivePorts() {
  static Immortal<LivePorts> ports;
  return ports.Get();
}

// Each byte becomes one UTF-16 unit; no code page is involved.
std::u16string Widen(const std::string& bytes) {
  std::u16string wide;
  wide.reserve(bytes.size());
  for (const char byte : bytes) wide.push_back(static_cast<unsigned char>(byte));
  return wide;
}

// The published name in the system's code page, as winmm's ANSI calls return it.
std::string NameOnDesktop(const std::string& publishedName) {
  return Use<ProcessApi>().ansiFromLatin1(publishedName);
}

}  // namespace

std::string PublishedName(const std::string& endpointName) {
  if (endpointName.size() <= kLongestPublishedName) return endpointName;
  return endpointName.substr(0, kLongestPublishedName - 2) + "..";
}

std::shared_ptr<VirtualMidiPort> VirtualMidiPort::Create(std::string name, DesktopNames& names) {
  const std::u16string published = Widen(PublishedName(name));
  std::shared_ptr<VirtualMidiPort> port(new VirtualMidiPort(std::move(name), names));
  // Known on the desktop and to the callback before the driver can show the port to anyone, or in
  // neither place.
  TheLivePorts().Add(port->instance, port);
  try {
    names.Add(port->nameOnDesktop);
  } catch (...) {
    TheLivePorts().Remove(port->instance);
    throw;
  }
  port->portHandle = Use<VirtualMidiApi>().virtualMIDICreatePortEx2(
      published.c_str(), virtualMidiDataCallback, port->instance, kMaximumSysex,
      kVirtualMidiParseReceived);
  return port;
}

VirtualMidiPort::VirtualMidiPort(std::string endpointName, DesktopNames& desktopNames)
    : name(std::move(endpointName)),
      nameOnDesktop(NameOnDesktop(PublishedName(name))),
      names(desktopNames),
      instance(TheLivePorts().NextInstance()) {}

void VirtualMidiPort::Close() {
  {
    CriticalSectionScope hold(sendLock);
    closed = true;
  }
  const VirtualMidiHandle handle = portHandle.exchange(nullptr);
  if (handle != nullptr) Use<VirtualMidiApi>().virtualMIDIClosePort(handle);
  names.Remove(nameOnDesktop);
  TheLivePorts().Remove(instance);
}

void VirtualMidiPort::SetOwner(VirtualMidiDestinationDelegate* owner, std::string key) {
  auto shared = std::make_shared<const std::string>(std::move(key));
  CriticalSectionScope hold(lock);
  delegate = owner;
  deviceKey = std::move(shared);
}

void VirtualMidiPort::AddRecord(EndpointKind kind, std::string recordName, std::uint32_t id,
                                std::string recordKey) {
  const auto record = std::make_shared<VirtualMidiEndpointRecord>();
  record->portHandle = portHandle;
  record->name = std::move(recordName);
  record->deviceKey = std::move(recordKey);
  record->endpointId = id;

  CriticalSectionScope hold(lock);
  auto& place = kind == EndpointKind::source ? sourceRecord : destinationRecord;
  if (place == nullptr) place = record;
}

void VirtualMidiPort::RemoveRecord(EndpointKind kind) {
  CriticalSectionScope hold(lock);
  auto& place = kind == EndpointKind::source ? sourceRecord : destinationRecord;
  if (place == nullptr) return;
  place->enabled = false;
  place.reset();
}

std::shared_ptr<VirtualMidiEndpointRecord> VirtualMidiPort::Record(EndpointKind kind) const {
  CriticalSectionScope hold(lock);
  return kind == EndpointKind::source ? sourceRecord : destinationRecord;
}

void VirtualMidiPort::SendData(const VirtualMidiEndpointRecord& record, const std::uint8_t* data,
                               std::uint32_t count) {
  CriticalSectionScope hold(sendLock);
  if (closed) return;
  Use<VirtualMidiApi>().virtualMIDISendData(record.portHandle, data, count);
}

void VirtualMidiPort::MidiReceived(const std::uint8_t* data, std::uint32_t count,
                                   const std::string& endpointName, std::uint32_t id,
                                   std::uint32_t secondWord, std::int64_t timestamp,
                                   const std::string& /*recordKey*/) {
  VirtualMidiDestinationDelegate* owner;
  std::shared_ptr<const std::string> key;
  {
    CriticalSectionScope hold(lock);
    owner = delegate;
    key = deviceKey;
  }
  if (owner == nullptr) return;
  owner->MidiReceived(data, count, endpointName, id, secondWord, timestamp, *key);
}

void virtualMidiDataCallback(VirtualMidiHandle /*handle*/, std::uint8_t* data, std::uint32_t length,
                             std::uintptr_t instance) try {
  const std::shared_ptr<VirtualMidiPort> port = TheLivePorts().Find(instance);
  if (port == nullptr) return;
  const auto record = port->Record(EndpointKind::destination);
  if (record == nullptr || !record->enabled) return;
  port->MidiReceived(data, length, record->name, record->endpointId, record->secondWord,
                     HostTimeNanoseconds(), record->deviceKey);
} catch (const std::exception& failure) {
  // The driver's frames above this one know no exceptions.
  LogError("MIDI from a published port dropped: %s", failure.what());
}

}  // namespace corvalint
