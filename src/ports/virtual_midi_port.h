#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "clients/endpoint_owner.h"
#include "platform/critical_section.h"
#include "platform/virtual_midi_api.h"
#include "ports/desktop_names.h"
#include "ports/midi_delegates.h"

namespace corvalint {

// One endpoint of a device that a port carries. Constant once the port shows it, but for `enabled`,
// which is cleared when the record is taken off the port: a driver callback that holds a share of
// the record then drops its data.
struct VirtualMidiEndpointRecord {
  VirtualMidiHandle portHandle = nullptr;
  std::atomic<bool> enabled{true};
  std::string name;
  std::string deviceKey;  // handed to the delegate's call, where the port's own key replaces it
  std::uint32_t endpointId = 0;
  std::uint32_t secondWord = 0;  // goes with the id, never set; nothing here reads it
};

// The name under which the desktop sees a port: at most 31 bytes, longer names cut after 29 and
// marked with two dots.
std::string PublishedName(const std::string& endpointName);

// One MIDI port that is published on the desktop for one endpoint name of a device. It carries the
// device's source of that name (the device plays, desktop programs read), its destination (desktop
// programs write), or both. Made and closed by ExternalMidiManager with no lock held, since the
// driver may wait for a callback; its records change under `midiLock`.
class VirtualMidiPort final : public VirtualMidiDestinationDelegate {
 public:
  // Makes the port at the driver. Always gives an object: when the driver refuses, silently, the
  // port lives without a handle and what is sent into it is lost. `names` must outlive the port.
  static std::shared_ptr<VirtualMidiPort> Create(std::string name, DesktopNames& names);

  // Waits for a driver callback in progress and closes the port at the driver. Once, by the owner,
  // with no lock held. The memory goes with the last share.
  void Close();

  void SetOwner(VirtualMidiDestinationDelegate* owner, std::string key) CORVALINT_EXCLUDES(lock);

  // Gives the port a record of that kind; nothing when it has one. `recordKey` becomes the record's
  // device key.
  void AddRecord(EndpointKind kind, std::string recordName, std::uint32_t id, std::string recordKey)
      CORVALINT_EXCLUDES(lock);
  void RemoveRecord(EndpointKind kind) CORVALINT_EXCLUDES(lock);
  // Null when the port has none.
  std::shared_ptr<VirtualMidiEndpointRecord> Record(EndpointKind kind) const
      CORVALINT_EXCLUDES(lock);

  // Writes bytes into the port with the handle stored in that record; what the driver answers is
  // not looked at. Nothing once Close has begun.
  void SendData(const VirtualMidiEndpointRecord& record, const std::uint8_t* data,
                std::uint32_t count) CORVALINT_EXCLUDES(sendLock);

  // Passes MIDI on to the owner with the port's own device key in place of the last argument.
  void MidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& endpointName,
                    std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                    const std::string& recordKey) override;

  const std::string& Name() const { return name; }

 private:
  VirtualMidiPort(std::string endpointName, DesktopNames& desktopNames);

  const std::string name;           // full, not cut
  const std::string nameOnDesktop;  // as winmm's ANSI calls return it
  DesktopNames& names;
  const std::uintptr_t instance;  // what the driver gives back to the callback
  std::atomic<VirtualMidiHandle> portHandle{nullptr};

  // Leaf: the callback takes shares of what it needs under it.
  mutable CriticalSection lock;
  std::shared_ptr<VirtualMidiEndpointRecord> sourceRecord CORVALINT_GUARDED_BY(lock);
  std::shared_ptr<VirtualMidiEndpointRecord> destinationRecord CORVALINT_GUARDED_BY(lock);
  // Replaced, never changed, so that a callback can keep it without a copy.
  std::shared_ptr<const std::string> deviceKey CORVALINT_GUARDED_BY(lock);
  VirtualMidiDestinationDelegate* delegate CORVALINT_GUARDED_BY(lock) = nullptr;

  // Leaf: held around one call of the driver, so that nothing is sent into a closed port.
  CriticalSection sendLock;
  bool closed CORVALINT_GUARDED_BY(sendLock) = false;
};

// What the driver calls, on its own thread, for bytes written into a port. `instance` is looked up
// in the table of live ports: a callback that comes too early or too late finds nothing.
void virtualMidiDataCallback(VirtualMidiHandle handle, std::uint8_t* data, std::uint32_t length,
                             std::uintptr_t instance);

}  // namespace corvalint
