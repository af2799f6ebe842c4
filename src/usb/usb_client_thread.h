#pragma once

#include <cstdint>

#include "platform/mobile_device_api.h"
#include "protocol/base_client_thread.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {

inline constexpr std::uint16_t kDevicePort = 23451;

// The client of one device on the USB cable. Made and listed by the server when the device arrives;
// destroys itself at the end of its run, on its own thread, once it is no longer listed and nobody
// is inside one of its operations.
class UsbClientThread final : public BaseClientThread {
 public:
  // `deviceHandle` is the device library's. The client disconnects it at its end, which may be
  // seconds after the departure was told.
  UsbClientThread(UsbServer& usbServer, DeviceHandle deviceHandle, ExternalMidiManager& manager);

  // Clears `running` and closes the stream; waits a second if it was open, but never for the
  // thread. The caller borrows the client across the call.
  void Stop() override;

  // The end of the run: stops, disconnects the device, waits until the client is out of the list
  // and not borrowed, and destroys it. For the client's own thread, or for the server when the
  // client never got a thread.
  std::uint32_t Finalize() override;

  DeviceHandle Device() const { return device; }
  ExternalMidiManager& Manager() { return midiManager; }

 protected:
  void PerformDisconnect() override;
  bool Connect() override;

 private:
  ~UsbClientThread() override;

  void ObtainConnectionId();
  bool OpenPort();
  void AnnounceEndpoints();
  void AnnounceDesktop(MidiEndpointRegistry& registry);
  void AnnounceOtherDevices();
  void AnnounceOne(EndpointKind kind, const std::string& name, std::int32_t id);

  const DeviceHandle device;
  std::uint32_t connectionId = 0;  // usbmux's number of the device, 0 while unknown; own thread
  int unannounced = 0;             // endpoints of the last announcement; own thread
};

}  // namespace corvalint
