#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/mobile_device_api.h"

namespace corvalint::fuzz {

// What the device library answers when a client asks for a stream to a device.
enum class PortAnswer { stream, refusal, noSocket, negativeSocket };

// The device library for the fuzz targets: some devices, scripted answers, and a list of the calls
// that have to do with connections. It calls back when a target says so.
struct DeviceCable {
  static constexpr std::size_t kDevices = 4;

  struct Device {
    // The library's record, of which the word at offset 24 is not 0 for a usable device.
    std::array<std::uintptr_t, 4> record{0, 0, 0, 1};
    const char* identifier = nullptr;
    std::uint32_t connectAnswer = 0;
    std::uint32_t connectionId = 0;
  };
  std::array<Device, kDevices> devices;
  PortAnswer portAnswer = PortAnswer::stream;

  // "connect 2", "id 2", "port 102", "disconnect 2"
  std::vector<std::string> calls;
  // Run in each of those calls.
  void (*whenCalled)() = nullptr;
  DeviceNotificationCallback callback = nullptr;

  DeviceHandle Handle(std::size_t device) { return devices[device].record.data(); }
  std::size_t NumberOf(DeviceHandle handle) const;
  // Tells the subscriber; a null handle is no device.
  void Notify(DeviceHandle handle, std::uint32_t kind) const;
};

// The one cable, put in force by the first call.
DeviceCable& TheDeviceCable();

}  // namespace corvalint::fuzz
