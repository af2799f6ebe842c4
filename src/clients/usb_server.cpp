#include "clients/usb_server.h"

#include <osc/OscOutboundPacketStream.h>

#include <cstring>
#include <optional>

#include "clients/packet_buffer.h"

namespace corvalint {

static_assert(sizeof(osc::int64) == 8 && sizeof(osc::int32) == 4,
              "time stamps and ids go over the wire in 8 and 4 bytes");

std::atomic<UsbServer*> theUsbServer{nullptr};

namespace {

constexpr std::size_t RoundUp4(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

// A finished "/midi" packet.
class MidiPacket {
 public:
  MidiPacket(const std::uint8_t* data, std::uint32_t length, const char* name, std::int32_t id,
             std::int64_t timestamp)
      : buffer(PacketSize(name, length)) {
    // The OSC library counts a blob in signed 32 bits, so what can never fit is refused here.
    if (length > kMaximumPayload) throw osc::OutOfBufferMemoryException();
    // An empty blob needs an address too.
    const void* bytes = data != nullptr ? static_cast<const void*>(data) : "";
    osc::OutboundPacketStream stream(buffer.Data(), buffer.Capacity());
    stream << osc::BeginMessage("/midi") << name << static_cast<osc::int32>(id)
           << static_cast<osc::int64>(timestamp)
           << osc::Blob(bytes, static_cast<osc::osc_bundle_element_size_t>(length))
           << osc::EndMessage;
    frame = buffer.Framed(stream.Size());
  }

  void SendTo(DeviceClient& client) const { client.SendFrame(frame); }

 private:
  static std::size_t PacketSize(const char* name, std::uint32_t length) {
    constexpr std::size_t kAddressAndTags = 8 + 8;      // "/midi" and ",sihb", each with padding
    constexpr std::size_t kFixedArguments = 4 + 8 + 4;  // id, time stamp, blob size
    return kAddressAndTags + RoundUp4(std::strlen(name) + 1) + kFixedArguments + RoundUp4(length);
  }

  PacketBuffer buffer;
  Frame frame;
};

}  // namespace

void UsbServer::SendMidiToAll(const std::uint8_t* data, std::uint32_t length,
                              const std::string& name, std::int32_t id, std::int64_t timestamp) {
  const MidiPacket packet(data, length, name.c_str(), id, timestamp);
  CriticalSectionScope hold(clientLock);
  for (DeviceClient* client : ClientWalk(clients)) packet.SendTo(*client);
}

void UsbServer::SendMidiToOwners(const std::uint8_t* data, std::uint32_t length,
                                 const std::string& name, std::int32_t id, std::int64_t timestamp,
                                 const std::string& ownerKey) {
  const MidiPacket packet(data, length, name.c_str(), id, timestamp);
  CriticalSectionScope hold(clientLock);
  for (DeviceClient* client : ClientWalk(clients, ownerKey)) {
    if (Owns(*client, ownerKey, name)) packet.SendTo(*client);
  }
}

void UsbServer::RelayMidiToOthers(const std::uint8_t* data, std::uint32_t length, const char* name,
                                  std::int32_t id, const DeviceClient& origin,
                                  std::int64_t timestamp) {
  // A packet that came from a device always fits, so nothing is lost with what is not built.
  if (clients.HasOnly(origin)) return;
  const MidiPacket packet(data, length, name, id, timestamp);
  for (DeviceClient* client : ClientWalk(clients)) {
    if (client != &origin) packet.SendTo(*client);
  }
}

void UsbServer::Announce(Announcement what, const std::string& name, std::int32_t id,
                         const std::string& ownerKey) {
  const AnnouncementPacket packet(what, name, id);
  CriticalSectionScope hold(clientLock);
  for (DeviceClient* client : ClientWalk(clients)) {
    if (!Owns(*client, ownerKey, name)) packet.SendTo(*client);
  }
}

void UsbServer::AnnounceAndPrint(Announcement what, const std::string& name, std::int32_t id,
                                 const std::string& ownerKey) {
  Announce(what, name, id, ownerKey);
  PrintAnnounced(what, name, id);
}

void UsbServer::SendAddRemoteSource(const std::string& name, std::int32_t id,
                                    const std::string& ownerKey) {
  AnnounceAndPrint(Announcement::addRemoteSource, name, id, ownerKey);
}

void UsbServer::SendAddRemoteDestination(const std::string& name, std::int32_t id,
                                         const std::string& ownerKey) {
  AnnounceAndPrint(Announcement::addRemoteDestination, name, id, ownerKey);
}

void UsbServer::SendRemoveRemoteSource(const std::string& name, std::int32_t id,
                                       const std::string& ownerKey) {
  AnnounceAndPrint(Announcement::removeRemoteSource, name, id, ownerKey);
}

void UsbServer::SendRemoveRemoteDestination(const std::string& name, std::int32_t id,
                                            const std::string& ownerKey) {
  AnnounceAndPrint(Announcement::removeRemoteDestination, name, id, ownerKey);
}

// The hook gives up a hold before it walks its ports and another one on a hit, so its caller enters
// twice: the walk is then still protected. The scope restores what is left or missing afterwards.
void UsbServer::NotifyOtherManagers(const char* name, std::int32_t id,
                                    const DeviceClient& origin) CORVALINT_UNCHECKED_LOCKING {
  CriticalSection* lock = midiLock.load(std::memory_order_acquire);
  if (lock == nullptr) return;
  for (DeviceClient* client : ClientWalk(clients)) {
    if (client == &origin) continue;
    HoldScope restore(*lock);
    lock->Enter();
    lock->Enter();
    client->Owner().SendMidiToDestination(name, static_cast<std::uint32_t>(id));
  }
}

bool UsbServer::Owns(DeviceClient& client, const std::string& ownerKey, const std::string& name) {
  std::optional<HoldScope> restore;
  if (CriticalSection* lock = midiLock.load(std::memory_order_acquire)) restore.emplace(*lock);
  return client.Owner().OwnsEndpoint(ownerKey, name);
}

}  // namespace corvalint
