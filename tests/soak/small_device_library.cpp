#include "soak/small_device_library.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "device/loopback.h"
#include "soak/complaints.h"

namespace corvalint::soak {

namespace {

std::atomic<SmallDeviceLibrary*> current{nullptr};
int notificationHandle;  // its address is the handle

constexpr std::uint32_t kRecoveryMode = 0xE8000028;
constexpr std::uint32_t kSomeFailure = 0xE8000084;
constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kDisconnected = 2;

// A stream to that port, or -1.
int Connect(std::uint16_t port) {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (made < 0) return -1;
  const sockaddr_in address = device::Loopback(port);
  if (connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return made;
  close(made);
  return -1;
}

}  // namespace

struct SmallDeviceLibrary::Device {
  std::array<std::uintptr_t, 4> record{};  // first, so that a handle is its address
  std::string identifier;
  std::uint16_t port = 0;
  std::atomic<bool> attached{false};
};

struct SmallDeviceLibrary::Table {
  static Device& Of(DeviceHandle handle) { return *static_cast<Device*>(handle); }

  static std::uint8_t GetCString(CoreString text, char* buffer, std::int64_t size, std::uint32_t) {
    std::strncpy(buffer, static_cast<const char*>(text), static_cast<std::size_t>(size));
    return 1;
  }

  static std::uint32_t Subscribe(DeviceNotificationCallback callback, std::uint32_t, std::uint32_t,
                                 std::uintptr_t, void** notification) {
    *notification = &notificationHandle;
    Current().callback = callback;
    return 0;
  }

  static std::uint32_t Unsubscribe(void* notification) {
    if (notification != &notificationHandle) Complain("an unknown subscription was ended");
    Current().callback = nullptr;
    return 0;
  }

  static std::uint32_t ConnectDevice(DeviceHandle) {
    const std::uint32_t number = ++Current().connects;
    if (!Current().failing) return 0;
    if (number % 31 == 0) return kRecoveryMode;
    return number % 17 == 0 ? kSomeFailure : 0;
  }

  // A device's TCP port is its number too.
  static std::uint32_t MuxConnect(std::uint32_t connectionId, std::uint32_t, std::int64_t* socket) {
    SmallDeviceLibrary& library = Current();
    {
      const std::lock_guard hold(library.mutex);
      bool attached = false;
      for (const Device& device : library.devices) {
        if (device.port == connectionId) attached = device.attached;
      }
      if (!attached) return kSomeFailure;
    }
    *socket = Connect(static_cast<std::uint16_t>(connectionId));
    return *socket < 0 ? kSomeFailure : 0;
  }

  static const MobileDeviceApi& Get() {
    static constexpr MobileDeviceApi table{
        .cfStringMakeConstantString = [](const char* text) -> CoreString { return text; },
        .cfStringGetCString = GetCString,
        .amDeviceNotificationSubscribe = Subscribe,
        .amDeviceNotificationUnsubscribe = Unsubscribe,
        .amRestoreRegisterForDeviceNotifications =
            [](RestoreCallback, RestoreCallback, RestoreCallback, RestoreCallback, std::uint32_t,
               void*) { return std::uint32_t{0}; },
        .amDeviceCopyValue = [](DeviceHandle, CoreString, CoreString) -> CoreString {
          return nullptr;
        },
        .amDeviceCopyDeviceIdentifier = [](DeviceHandle device) -> CoreString {
          return Of(device).identifier.c_str();
        },
        .amDeviceConnect = ConnectDevice,
        .amDeviceDisconnect = [](DeviceHandle) { return std::uint32_t{0}; },
        .amDeviceGetConnectionId =
            [](DeviceHandle device) { return std::uint32_t{Of(device).port}; },
        .usbMuxConnectByPort = MuxConnect,
    };
    return table;
  }
};

SmallDeviceLibrary::SmallDeviceLibrary(bool connectsFailSometimes)
    : failing(connectsFailSometimes) {
  current = this;
  Install<MobileDeviceApi>(&Table::Get());
}

SmallDeviceLibrary::~SmallDeviceLibrary() {
  Install<MobileDeviceApi>(nullptr);
  current = nullptr;
}

SmallDeviceLibrary& SmallDeviceLibrary::Current() { return *current.load(); }

DeviceHandle SmallDeviceLibrary::Add(const std::string& identifier, std::uint16_t tcpPort) {
  const std::lock_guard hold(mutex);
  Device& device = devices.emplace_back();
  device.record[3] = 1;  // the word that makes a device usable
  device.identifier = identifier;
  device.port = tcpPort;
  return &device;
}

void SmallDeviceLibrary::Attach(DeviceHandle device) {
  Table::Of(device).attached = true;
  Notify(device, kConnected);
}

void SmallDeviceLibrary::Detach(DeviceHandle device) {
  Table::Of(device).attached = false;
  Notify(device, kDisconnected);
}

void SmallDeviceLibrary::Notify(DeviceHandle device, std::uint32_t kind) {
  std::array<unsigned char, 16> record{};
  std::memcpy(record.data(), &device, sizeof device);
  std::memcpy(record.data() + 8, &kind, sizeof kind);
  const DeviceNotificationCallback subscriber = callback;
  if (subscriber == nullptr) return Complain("nobody has subscribed to the device library");
  subscriber(record.data());
}

}  // namespace corvalint::soak
