#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>

#include "platform/mobile_device_api.h"

namespace corvalint::soak {

// A device library for runs without end, installed for as long as it lives; one at a time. Its
// devices are programs that listen on 127.0.0.1. It keeps no log. Now and then a connect fails,
// when that was asked for. Any thread.
class SmallDeviceLibrary {
 public:
  explicit SmallDeviceLibrary(bool connectsFailSometimes);
  ~SmallDeviceLibrary();
  SmallDeviceLibrary(const SmallDeviceLibrary&) = delete;
  SmallDeviceLibrary& operator=(const SmallDeviceLibrary&) = delete;

  // A device that is not attached yet. Its record lives as long as the library.
  DeviceHandle Add(const std::string& identifier, std::uint16_t tcpPort);

  bool Subscribed() const { return callback.load() != nullptr; }
  // Tell the subscriber on the calling thread.
  void Attach(DeviceHandle device);
  void Detach(DeviceHandle device);

 private:
  struct Device;
  struct Table;

  static SmallDeviceLibrary& Current();
  void Notify(DeviceHandle device, std::uint32_t kind);

  const bool failing;
  std::atomic<DeviceNotificationCallback> callback{nullptr};
  std::atomic<std::uint32_t> connects{0};
  std::mutex mutex;
  std::list<Device> devices;
};

}  // namespace corvalint::soak
