#include "winmidi/midi_link_controller.h"

#include <atomic>

#include "clients/usb_server.h"
#include "service/immortal.h"

namespace corvalint {

void MidiLinkController::MidiReceived(const std::uint8_t* data, std::int32_t length,
                                      const std::string& name, std::int32_t uniqueId,
                                      std::uint64_t timestamp) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr || length <= 0) return;
  server->SendMidiToAll(data, static_cast<std::uint32_t>(length), name, uniqueId,
                        static_cast<std::int64_t>(timestamp));
}

void MidiLinkController::SourceAdded(const MidiEndpoint& source) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr || source.off) return;
  server->SendAddRemoteSource(source.name, source.uniqueId, "");
}

void MidiLinkController::SourceRemoved(const MidiEndpoint& source) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr) return;
  server->SendRemoveRemoteSource(source.name, source.uniqueId, "");
}

void MidiLinkController::DestinationAdded(const MidiEndpoint& destination) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr || destination.off) return;
  server->SendAddRemoteDestination(destination.name, destination.uniqueId, "");
}

void MidiLinkController::DestinationRemoved(const MidiEndpoint& destination) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr) return;
  server->SendRemoveRemoteDestination(destination.name, destination.uniqueId, "");
}

void MidiLinkController::ExternalMidiReceived(const std::uint8_t* data, std::uint32_t count,
                                              const std::string& name, std::uint32_t id,
                                              std::uint32_t /*secondWord*/, std::int64_t timestamp,
                                              const std::string& deviceKey) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr) return;
  server->SendMidiToOwners(data, count, name, static_cast<std::int32_t>(id), timestamp, deviceKey);
}

MidiLinkController& GetMidiLinkController() {
  static Immortal<MidiLinkController> immortal(GetMidiEndpointRegistry());
  MidiLinkController& controller = immortal.Get();
  static std::atomic<bool> announced{false};
  if (!announced.exchange(true)) {
    controller.Registry().delegate = &controller;
    AnnounceOpenEndpoints(controller.Registry());
  }
  return controller;
}

}  // namespace corvalint
