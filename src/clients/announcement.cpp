#include "clients/announcement.h"

#include "service/console.h"

namespace corvalint {

namespace {

const char* AddressOf(Announcement what) {
  switch (what) {
    case Announcement::addRemoteSource:
      return "/add_remote_source";
    case Announcement::addRemoteDestination:
      return "/add_remote_destination";
    case Announcement::removeRemoteSource:
      return "/remove_remote_source";
    case Announcement::removeRemoteDestination:
      break;
  }
  return "/remove_remote_destination";
}

}  // namespace

AnnouncementPacket::AnnouncementPacket(Announcement what, const std::string& name, std::int32_t id)
    : stream(buffer + kFrameHeaderSize, kSmallPacketBuffer) {
  stream << osc::BeginMessage(AddressOf(what)) << name.c_str() << static_cast<osc::int32>(id)
         << osc::EndMessage;
  WriteFrameHeader(buffer, static_cast<std::uint32_t>(stream.Size()));
}

void AnnouncementPacket::SendTo(DeviceClient& client) const {
  client.SendFrame({buffer, static_cast<std::uint32_t>(stream.Size())});
}

void PrintAnnounced(Announcement what, const std::string& name, std::int32_t id) {
  switch (what) {
    case Announcement::addRemoteSource:
      return ConsolePrint("sending /add_remote_source: %s || %d \n", name.c_str(), id);
    case Announcement::addRemoteDestination:
      return ConsolePrint("sending /add_remote_destination: %s || %d \n", name.c_str(), id);
    case Announcement::removeRemoteSource:
      return ConsolePrint("sending /remove_remote_source: %s || %d \n", name.c_str(), id);
    case Announcement::removeRemoteDestination:
      return ConsolePrint("sending /remove_remote_destination: %s || %d \n", name.c_str(), id);
  }
}

}  // namespace corvalint
