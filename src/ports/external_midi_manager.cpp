#include "ports/external_midi_manager.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "clients/route_changes.h"

namespace corvalint {

// Makes a driver port and closes it again, with no lock held, if nobody takes it over.
class ExternalMidiManager::UnclaimedPort {
 public:
  UnclaimedPort() = default;
  ~UnclaimedPort() {
    if (port != nullptr) port->Close();
  }
  UnclaimedPort(const UnclaimedPort&) = delete;
  UnclaimedPort& operator=(const UnclaimedPort&) = delete;

  void Make(const std::string& name, DesktopNames& desktopNames) {
    port = VirtualMidiPort::Create(name, desktopNames);
  }
  const std::shared_ptr<VirtualMidiPort>& Get() const { return port; }
  void Claimed() { port.reset(); }

 private:
  std::shared_ptr<VirtualMidiPort> port;
};

ExternalMidiManager::ExternalMidiManager(UsbServer& usbServer, CriticalSection& lock,
                                         DesktopNames& desktopNames)
    : server(usbServer), midiLock(lock), names(desktopNames) {}

void ExternalMidiManager::AddRemoteSource(const std::string& name, std::uint32_t id) {
  AddRemote(EndpointKind::source, name, id);
}

void ExternalMidiManager::AddRemoteDestination(const std::string& name, std::uint32_t id) {
  AddRemote(EndpointKind::destination, name, id);
}

// The driver makes a port with no lock held, since played notes wait for both; afterwards the
// tables are looked at again, as a second stream of the same device may have been faster.
void ExternalMidiManager::AddRemote(EndpointKind kind, const std::string& name, std::uint32_t id) {
  UnclaimedPort newPort;
  Attachment result = Publish(kind, name, id, newPort);
  if (result == Attachment::needsPort) {
    newPort.Make(name, names);
    result = Publish(kind, name, id, newPort);
  }
  if (result == Attachment::idKnown) return;
  PrintAnnounced(AdditionOf(kind), name, static_cast<std::int32_t>(id));
}

// `clientLock` is kept over the change and its announcement: a removal cannot be told before the
// addition.
ExternalMidiManager::Attachment ExternalMidiManager::Publish(EndpointKind kind,
                                                             const std::string& name,
                                                             std::uint32_t id,
                                                             UnclaimedPort& newPort) {
  CriticalSectionScope holdClients(server.clientLock);
  const Attachment result = Attach(kind, name, id, newPort.Get());
  // The table has the port by now, and keeps it when the announcement throws.
  if (result == Attachment::toNewPort) newPort.Claimed();
  if (result == Attachment::toNewPort || result == Attachment::toExistingPort) {
    server.Announce(AdditionOf(kind), name, static_cast<std::int32_t>(id), deviceKey);
  }
  return result;
}

ExternalMidiManager::Attachment ExternalMidiManager::Attach(EndpointKind kind,
                                                            const std::string& name,
                                                            std::uint32_t id,
                                                            const PortPointer& newPort) {
  CriticalSectionScope hold(midiLock);
  if (PortWithId(kind, id) != nullptr) return Attachment::idKnown;
  if (AttachToExistingPort(kind, name, id)) return Attachment::toExistingPort;
  if (newPort == nullptr) return Attachment::needsPort;
  newPort->SetOwner(this, deviceKey);
  // A new port's record carries no device key of its own; the port's is the one that is passed on.
  newPort->AddRecord(kind, name, id, "");
  ports.push_back(newPort);
  routeChanges.Note();
  return Attachment::toNewPort;
}

bool ExternalMidiManager::AttachToExistingPort(EndpointKind kind, const std::string& name,
                                               std::uint32_t id) {
  const auto port = std::find_if(ports.rbegin(), ports.rend(), [&](const PortPointer& candidate) {
    return candidate->Name() == name && candidate->Record(kind) == nullptr;
  });
  if (port == ports.rend()) return false;
  (*port)->AddRecord(kind, name, id, deviceKey);
  routeChanges.Note();
  return true;
}

ExternalMidiManager::PortPointer ExternalMidiManager::PortWithId(EndpointKind kind,
                                                                 std::uint32_t id) {
  const auto port = std::find_if(ports.rbegin(), ports.rend(), [&](const PortPointer& candidate) {
    const auto record = candidate->Record(kind);
    return record != nullptr && record->endpointId == id;
  });
  return port == ports.rend() ? nullptr : *port;
}

// Takes the record off the port and the port, when that was its last one, out of the table; gives
// the port back then, for its caller to close outside the lock.
ExternalMidiManager::PortPointer ExternalMidiManager::TakeOff(EndpointKind kind,
                                                              const PortPointer& port) {
  port->RemoveRecord(kind);
  routeChanges.Note();
  const EndpointKind other =
      kind == EndpointKind::source ? EndpointKind::destination : EndpointKind::source;
  if (port->Record(other) != nullptr) return nullptr;
  ports.erase(std::remove(ports.begin(), ports.end(), port), ports.end());
  return port;
}

// The message goes out while the source is still there and `midiLock` is held, so `clientLock` must
// be entered first.
void ExternalMidiManager::RemoveRemoteSource(const std::string& name, std::uint32_t id) {
  PortPointer emptied;
  std::exception_ptr failure;
  {
    CriticalSectionScope holdClients(server.clientLock);
    CriticalSectionScope hold(midiLock);
    const PortPointer port = PortWithId(EndpointKind::source, id);
    if (port == nullptr) return;
    failure = AnnounceRemoval(EndpointKind::source, name, id);
    emptied = TakeOff(EndpointKind::source, port);
  }
  FinishRemoval(EndpointKind::source, name, id, emptied, failure);
}

// Unlike for a source, `midiLock` is released while the message goes out, on purpose, and the port
// that was found before is then changed without a second search. It is looked at again all the
// same: a second stream of the same device may have removed the record meanwhile. `clientLock` is
// kept over both, so that a device that connects in between is not told of the destination after
// its end.
void ExternalMidiManager::RemoveRemoteDestination(const std::string& name, std::uint32_t id) {
  PortPointer emptied;
  std::exception_ptr failure;
  {
    CriticalSectionScope holdClients(server.clientLock);
    PortPointer port;
    std::shared_ptr<VirtualMidiEndpointRecord> record;
    {
      CriticalSectionScope hold(midiLock);
      port = PortWithId(EndpointKind::destination, id);
      if (port == nullptr) return;
      record = port->Record(EndpointKind::destination);
    }
    failure = AnnounceRemoval(EndpointKind::destination, name, id);
    CriticalSectionScope hold(midiLock);
    if (port->Record(EndpointKind::destination) == record) {
      emptied = TakeOff(EndpointKind::destination, port);
    }
  }
  FinishRemoval(EndpointKind::destination, name, id, emptied, failure);
}

// A removal goes on when its message cannot be built; the failure is passed on afterwards.
std::exception_ptr ExternalMidiManager::AnnounceRemoval(EndpointKind kind, const std::string& name,
                                                        std::uint32_t id) {
  try {
    server.Announce(RemovalOf(kind), name, static_cast<std::int32_t>(id), deviceKey);
    return nullptr;
  } catch (...) {
    return std::current_exception();
  }
}

// Printing and closing wait until all locks are left: the closing waits for a driver callback that
// may want them.
void ExternalMidiManager::FinishRemoval(EndpointKind kind, const std::string& name,
                                        std::uint32_t id, const PortPointer& emptied,
                                        const std::exception_ptr& failure) {
  if (failure == nullptr) PrintAnnounced(RemovalOf(kind), name, static_cast<std::int32_t>(id));
  if (emptied != nullptr) emptied->Close();
  if (failure != nullptr) std::rethrow_exception(failure);
}

SourcePort ExternalMidiManager::SourcePortWithId(std::uint32_t id) {
  CriticalSectionScope hold(midiLock);
  const PortPointer port = PortWithId(EndpointKind::source, id);
  if (port == nullptr) return {};
  return {port, port->Record(EndpointKind::source)};
}

bool ExternalMidiManager::HasEndpointNamed(const std::string& name) {
  CriticalSectionScope hold(midiLock);
  for (const PortPointer& port : ports) {
    for (const EndpointKind kind : {EndpointKind::source, EndpointKind::destination}) {
      const auto record = port->Record(kind);
      if (record != nullptr && record->name == name) return true;
    }
  }
  return false;
}

std::vector<PublishedEndpoint> ExternalMidiManager::PublishedEndpoints() {
  std::vector<PublishedEndpoint> published;
  CriticalSectionScope hold(midiLock);
  for (auto port = ports.rbegin(); port != ports.rend(); ++port) {
    for (const EndpointKind kind : {EndpointKind::destination, EndpointKind::source}) {
      if (const auto record = (*port)->Record(kind)) {
        published.push_back({kind, record->name, record->endpointId});
      }
    }
  }
  return published;
}

// With an empty key the outer hold is never left, on purpose: the operation answers with one hold
// kept for its caller, who restores the count with a HoldScope.
bool ExternalMidiManager::OwnsEndpoint(const std::string& ownerKey, const std::string& endpointName)
    CORVALINT_UNCHECKED_LOCKING {
  if (!MayOwn(ownerKey)) return false;
  midiLock.Enter();
  if (ownerKey.empty()) return HasEndpointNamed(endpointName);
  const bool owns = !ports.empty();  // each carries the manager's own key
  midiLock.Leave();
  return owns;
}

// Kept as it is on purpose: it gives up a hold that its caller took, walks, gives up another one on
// a hit, and sends nothing. The walk runs over a copy, so that it is safe with no hold left.
void ExternalMidiManager::SendMidiToDestination(std::string_view /*name*/,
                                                std::uint32_t id) CORVALINT_UNCHECKED_LOCKING {
  midiLock.Leave();
  std::vector<PortPointer> walked;
  {
    CriticalSectionScope hold(midiLock);
    walked = ports;
  }
  for (auto port = walked.rbegin(); port != walked.rend(); ++port) {
    const auto record = (*port)->Record(EndpointKind::destination);
    if (record != nullptr && record->endpointId == id) {
      midiLock.Leave();
      return;
    }
  }
}

void ExternalMidiManager::MidiReceived(const std::uint8_t* data, std::uint32_t count,
                                       const std::string& name, std::uint32_t id,
                                       std::uint32_t secondWord, std::int64_t timestamp,
                                       const std::string& key) {
  ExternalMidiManagerDelegate* receiver = delegate;
  if (receiver == nullptr) return;
  receiver->ExternalMidiReceived(data, count, name, id, secondWord, timestamp, key);
}

}  // namespace corvalint
