#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "clients/endpoint_owner.h"
#include "clients/usb_server.h"
#include "platform/critical_section.h"
#include "ports/desktop_names.h"
#include "ports/midi_delegates.h"
#include "ports/virtual_midi_port.h"

namespace corvalint {

// A published port with the record of the source that it carries; empty when there is none.
struct SourcePort {
  std::shared_ptr<VirtualMidiPort> port;
  std::shared_ptr<const VirtualMidiEndpointRecord> record;

  explicit operator bool() const { return port != nullptr; }
  // Writes the device's bytes, exactly as received, into the port.
  void Send(const std::uint8_t* data, std::uint32_t count) const {
    port->SendData(*record, data, count);
  }
};

// The MIDI endpoints that one device announced, published on the desktop: one port per endpoint
// name, carrying a source, a destination or both. Endpoints are told apart by the device's unique
// id; names need not be unique. A manager lives until the process ends, and its ports stay when the
// device leaves, for its return. Names compare byte by byte, uncut.
class ExternalMidiManager final : public VirtualMidiDestinationDelegate, public EndpointOwner {
 public:
  // All three must outlive the manager. `lock` is the server's `midiLock`.
  ExternalMidiManager(UsbServer& usbServer, CriticalSection& lock, DesktopNames& desktopNames);

  // Before any endpoint is added.
  void SetDeviceKey(std::string key) { deviceKey = std::move(key); }
  void SetDelegate(ExternalMidiManagerDelegate* receiver) { delegate = receiver; }

  // Publish an endpoint and announce it to the other devices. An id that any port carries already
  // does nothing. A name too long for an announcement throws osc::OutOfBufferMemoryException, after
  // the endpoint was published.
  void AddRemoteSource(const std::string& name, std::uint32_t id);
  void AddRemoteDestination(const std::string& name, std::uint32_t id);
  // Withdraw an endpoint and tell the other devices; the last record of a port closes it. An
  // unknown id does nothing. They throw as the adds do, after the endpoint was withdrawn.
  void RemoveRemoteSource(const std::string& name, std::uint32_t id);
  void RemoveRemoteDestination(const std::string& name, std::uint32_t id);

  // The port of the source with that id (names are not compared), or none. A port that is closed
  // meanwhile swallows what is still sent into it.
  SourcePort SourcePortWithId(std::uint32_t id) CORVALINT_EXCLUDES(midiLock);

  // Whether a record of that name exists.
  bool HasEndpointNamed(const std::string& name) CORVALINT_EXCLUDES(midiLock);

  bool OwnsEndpoint(const std::string& ownerKey, const std::string& endpointName) override;
  bool MayOwn(const std::string& ownerKey) const override {
    return ownerKey.empty() || ownerKey == deviceKey;
  }
  void SendMidiToDestination(std::string_view name, std::uint32_t id) override;
  std::vector<PublishedEndpoint> PublishedEndpoints() override;
  void MidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& name,
                    std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                    const std::string& key) override;

  // Set while the device is away. For whoever looks on; nothing here acts on it, the ports stay.
  std::atomic<bool> deviceDisconnected{false};

 private:
  using PortPointer = std::shared_ptr<VirtualMidiPort>;

  // What became of a new endpoint.
  enum class Attachment { idKnown, toExistingPort, toNewPort, needsPort };

  class UnclaimedPort;

  void AddRemote(EndpointKind kind, const std::string& name, std::uint32_t id);
  Attachment Publish(EndpointKind kind, const std::string& name, std::uint32_t id,
                     UnclaimedPort& newPort) CORVALINT_EXCLUDES(midiLock);
  Attachment Attach(EndpointKind kind, const std::string& name, std::uint32_t id,
                    const PortPointer& newPort) CORVALINT_EXCLUDES(midiLock);
  bool AttachToExistingPort(EndpointKind kind, const std::string& name, std::uint32_t id)
      CORVALINT_REQUIRES(midiLock);
  PortPointer PortWithId(EndpointKind kind, std::uint32_t id) CORVALINT_REQUIRES(midiLock);
  std::exception_ptr AnnounceRemoval(EndpointKind kind, const std::string& name, std::uint32_t id);
  static void FinishRemoval(EndpointKind kind, const std::string& name, std::uint32_t id,
                            const PortPointer& emptied, const std::exception_ptr& failure);
  PortPointer TakeOff(EndpointKind kind, const PortPointer& port) CORVALINT_REQUIRES(midiLock);

  UsbServer& server;
  CriticalSection& midiLock;
  DesktopNames& names;
  std::string deviceKey;  // constant once set
  std::atomic<ExternalMidiManagerDelegate*> delegate{nullptr};
  std::vector<PortPointer> ports CORVALINT_GUARDED_BY(midiLock);
};

}  // namespace corvalint
