#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "clients/announcement.h"
#include "clients/client_list.h"
#include "platform/critical_section.h"

namespace corvalint {

// What the rest of the bridge shares with the server of USB devices (UsbServerThread): the list of
// clients, the two locks, and the messages to devices.
//
// Messages, as OSC packets in one frame each (docs/wire-format.md):
//   "/midi"         string endpoint name, int32 id, int64 nanoseconds, blob of MIDI bytes
//   announcements   string endpoint name, int32 id
// A message that does not fit its buffer (131072 bytes, announcements 4096) throws
// osc::OutOfBufferMemoryException out of the sender; nothing is sent and nothing is printed. What
// happens to a frame at one client does not touch the delivery to the others. A caller
// that holds `midiLock` must have entered `clientLock` before it.
class UsbServer {
 public:
  // MIDI to every device.
  void SendMidiToAll(const std::uint8_t* data, std::uint32_t length, const std::string& name,
                     std::int32_t id, std::int64_t timestamp);
  // MIDI to the devices whose manager owns the endpoint (see EndpointOwner::OwnsEndpoint).
  void SendMidiToOwners(const std::uint8_t* data, std::uint32_t length, const std::string& name,
                        std::int32_t id, std::int64_t timestamp, const std::string& ownerKey);
  // MIDI of one device to all the others. Takes no `clientLock`, on purpose: a device's own thread
  // relays while announcements may hold it.
  void RelayMidiToOthers(const std::uint8_t* data, std::uint32_t length, const char* name,
                         std::int32_t id, const DeviceClient& origin, std::int64_t timestamp);

  // Each announces to every device whose manager does not own the endpoint, so that no device hears
  // of its own, and then prints one console line, whether or not any device was there.
  void SendAddRemoteSource(const std::string& name, std::int32_t id, const std::string& ownerKey);
  void SendAddRemoteDestination(const std::string& name, std::int32_t id,
                                const std::string& ownerKey);
  void SendRemoveRemoteSource(const std::string& name, std::int32_t id,
                              const std::string& ownerKey);
  void SendRemoveRemoteDestination(const std::string& name, std::int32_t id,
                                   const std::string& ownerKey);

  // The senders above without the console line, for a caller that must keep a lock until the
  // message is out and must not print under it.
  void Announce(Announcement what, const std::string& name, std::int32_t id,
                const std::string& ownerKey);

  // Tells the managers of all devices but the origin's that MIDI for an endpoint came by which no
  // published port took. They look the id up and send nothing. Takes no `clientLock`.
  void NotifyOtherManagers(const char* name, std::int32_t id, const DeviceClient& origin);

  // Whether any device's manager publishes an endpoint of that name on the desktop, also under the
  // name that the desktop shows for it.
  virtual bool AnyManagerOwns(const std::string& endpointName) = 0;

  // Brackets a walk over the desktop's devices: a published port that goes away meanwhile is still
  // recognised by AnyManagerOwns until the walk has ended.
  virtual void BeginDesktopScan() = 0;
  virtual void EndDesktopScan() = 0;

  // Entered before `midiLock` where both are held.
  CriticalSection clientLock;
  // Guards the published-port tables. Null until the server's thread runs; then it stays.
  std::atomic<CriticalSection*> midiLock{nullptr};
  ClientList clients;

 protected:
  ~UsbServer() = default;

 private:
  void AnnounceAndPrint(Announcement what, const std::string& name, std::int32_t id,
                        const std::string& ownerKey);
  bool Owns(DeviceClient& client, const std::string& ownerKey, const std::string& name);
};

// The server, null until the service thread has made it. Load it once per operation: a second start
// of the service replaces it.
extern std::atomic<UsbServer*> theUsbServer;

}  // namespace corvalint
