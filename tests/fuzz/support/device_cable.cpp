#include "fuzz/support/device_cable.h"

#include <cstring>

#include "fuzz/support/check.h"
#include "fuzz/support/wire.h"

namespace corvalint::fuzz {

namespace {

constexpr std::uint32_t kRefused = 3;
constexpr std::uint32_t kPortInNetworkOrder = 0x9B5B;  // 23451

void Called(const char* what, std::size_t number) {
  DeviceCable& cable = TheDeviceCable();
  cable.calls.push_back(std::string(what) + " " + std::to_string(number));
  if (cable.whenCalled != nullptr) cable.whenCalled();
}

DeviceCable::Device& Known(DeviceHandle handle) {
  DeviceCable& cable = TheDeviceCable();
  return cable.devices[cable.NumberOf(handle)];
}

std::uint8_t CopyText(CoreString string, char* buffer, std::int64_t size, std::uint32_t encoding) {
  Check(string != nullptr && encoding == kCoreStringAscii, "a text of the device library");
  const auto* const text = static_cast<const char*>(string);
  Check(static_cast<std::int64_t>(std::strlen(text)) < size, "a buffer that is too small");
  std::strcpy(buffer, text);
  return 1;
}

std::uint32_t Subscribe(DeviceNotificationCallback callback, std::uint32_t, std::uint32_t,
                        std::uintptr_t, void** notification) {
  TheDeviceCable().callback = callback;
  *notification = &TheDeviceCable();
  return 0;
}

std::uint32_t Connect(DeviceHandle handle) {
  Called("connect", TheDeviceCable().NumberOf(handle));
  return Known(handle).connectAnswer;
}

std::uint32_t Disconnect(DeviceHandle handle) {
  Called("disconnect", TheDeviceCable().NumberOf(handle));
  return 0;
}

std::uint32_t ConnectionId(DeviceHandle handle) {
  Called("id", TheDeviceCable().NumberOf(handle));
  return Known(handle).connectionId;
}

std::uint32_t OpenPort(std::uint32_t connectionId, std::uint32_t port, std::int64_t* socket) {
  Called("port", connectionId);
  Check(port == kPortInNetworkOrder, "the port at the device");
  switch (TheDeviceCable().portAnswer) {
    case PortAnswer::stream:
      *socket = TheWire().OpenStream({});
      return 0;
    case PortAnswer::refusal:
      *socket = 0xBEEF;
      return kRefused;
    case PortAnswer::noSocket:
      *socket = 0;
      return 0;
    case PortAnswer::negativeSocket:
      *socket = -5;
      return 0;
  }
  return kRefused;
}

const MobileDeviceApi kCable{
    .cfStringMakeConstantString = [](const char* text) -> CoreString { return text; },
    .cfStringGetCString = CopyText,
    .amDeviceNotificationSubscribe = Subscribe,
    .amDeviceNotificationUnsubscribe = [](void*) { return std::uint32_t{0}; },
    .amRestoreRegisterForDeviceNotifications = [](RestoreCallback, RestoreCallback, RestoreCallback,
                                                  RestoreCallback, std::uint32_t,
                                                  void*) { return std::uint32_t{0}; },
    .amDeviceCopyValue = [](DeviceHandle handle, CoreString, CoreString) -> CoreString {
      Known(handle);
      return nullptr;
    },
    .amDeviceCopyDeviceIdentifier = [](DeviceHandle handle) -> CoreString {
      return Known(handle).identifier;
    },
    .amDeviceConnect = Connect,
    .amDeviceDisconnect = Disconnect,
    .amDeviceGetConnectionId = ConnectionId,
    .usbMuxConnectByPort = OpenPort,
};

}  // namespace

std::size_t DeviceCable::NumberOf(DeviceHandle handle) const {
  for (std::size_t i = 0; i < kDevices; ++i) {
    if (devices[i].record.data() == handle) return i;
  }
  Fail("a device that the library never gave");
}

void DeviceCable::Notify(DeviceHandle handle, std::uint32_t kind) const {
  struct {
    DeviceHandle device;
    std::uint32_t kind;
    std::uint32_t unused;
  } const record{handle, kind, 0xFFFFFFFF};
  static_assert(sizeof record == 16);
  callback(&record);
}

DeviceCable& TheDeviceCable() {
  static DeviceCable* const cable = [] {
    Install<MobileDeviceApi>(&kCable);
    return new DeviceCable;
  }();
  return *cable;
}

}  // namespace corvalint::fuzz
