#pragma once

#include <osc/OscOutboundPacketStream.h>

#include <cstdint>
#include <string>

#include "clients/device_client.h"
#include "clients/endpoint_owner.h"
#include "clients/packet_buffer.h"

namespace corvalint {

// The endpoint announcements that go to devices; all carry a name and a unique id.
enum class Announcement {
  addRemoteSource,
  addRemoteDestination,
  removeRemoteSource,
  removeRemoteDestination
};

// How an endpoint of that kind is announced, when it comes and when it goes.
constexpr Announcement AdditionOf(EndpointKind kind) {
  return kind == EndpointKind::source ? Announcement::addRemoteSource
                                      : Announcement::addRemoteDestination;
}
constexpr Announcement RemovalOf(EndpointKind kind) {
  return kind == EndpointKind::source ? Announcement::removeRemoteSource
                                      : Announcement::removeRemoteDestination;
}

// One finished announcement: string endpoint name, int32 id. The constructor throws
// osc::OutOfBufferMemoryException for a name that does not fit 4096 bytes.
class AnnouncementPacket {
 public:
  AnnouncementPacket(Announcement what, const std::string& name, std::int32_t id);

  void SendTo(DeviceClient& client) const;

 private:
  char buffer[kFrameHeaderSize + kSmallPacketBuffer];
  osc::OutboundPacketStream stream;
};

// Tells the console that an announcement went out.
void PrintAnnounced(Announcement what, const std::string& name, std::int32_t id);

}  // namespace corvalint
