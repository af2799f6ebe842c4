#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "clients/usb_server.h"
#include "platform/critical_section.h"
#include "platform/mobile_device_api.h"
#include "ports/desktop_names.h"
#include "ports/external_midi_manager.h"
#include "service/cthread.h"
#include "usb/usb_client_thread.h"

namespace corvalint {

// Knows which devices are attached. The device library tells it of arrivals and departures on a
// thread of its own, one at a time; each device gets a client for as long as it is attached, and a
// manager of published endpoints that is kept for its return. Made once by the service, lives until
// the process ends.
class UsbServerThread final : public CThread, public UsbServer {
 public:
  // Makes `midiLock`, scans the desktop once, subscribes to the device library and then only sleeps
  // until `running` is cleared. Returns what unsubscribing returns.
  std::uint32_t Run() override;

  bool AnyManagerOwns(const std::string& endpointName) override;
  void BeginDesktopScan() override { desktopNames.BeginScan(); }
  void EndDesktopScan() override { desktopNames.EndScan(); }

  // The device's identifier as text, empty without one, in a buffer that the next call overwrites.
  // Only while the device library calls back.
  static const char* GetDeviceIdentifier(DeviceHandle device);

  // What the device library calls. The record holds a device handle at offset 0 and a message kind
  // at offset 8: 1 connected, 2 disconnected.
  static void OnDeviceNotification(const void* record);
  static void OnDfuConnect(void* device, void* context);
  static void OnDfuDisconnect(void* device, void* context);
  static void OnRecoveryConnect(void* device, void* context);
  static void OnRecoveryDisconnect(void* device, void* context);

  // Number of managers ever made, one per device identifier.
  std::size_t ManagerCount() const CORVALINT_EXCLUDES(managersLock);

 private:
  ~UsbServerThread() = default;

  void HandleNotification(const void* record) CORVALINT_EXCLUDES(notificationLock);
  void OnDeviceConnected(DeviceHandle device) CORVALINT_REQUIRES(notificationLock);
  void OnDeviceDisconnected(DeviceHandle device) CORVALINT_REQUIRES(notificationLock);
  ExternalMidiManager& ManagerFor(const std::string& deviceKey)
      CORVALINT_REQUIRES(notificationLock);
  UsbClientThread* BorrowClientOf(DeviceHandle device) CORVALINT_REQUIRES(clientLock);

  CriticalSection publishedPortsLock;  // `midiLock`, once the thread runs
  DesktopNames desktopNames;

  // Keeps the library's notifications one at a time, whatever threads it delivers them on.
  CriticalSection notificationLock;
  std::map<std::string, ExternalMidiManager*> managersByDevice
      CORVALINT_GUARDED_BY(notificationLock);

  // Leaf: every manager ever made, in order. Never shrinks.
  mutable CriticalSection managersLock;
  std::vector<ExternalMidiManager*> managers CORVALINT_GUARDED_BY(managersLock);
};

}  // namespace corvalint
