#include "usb/usb_server_thread.h"

#include <cstring>
#include <exception>
#include <memory>

#include "platform/clock.h"
#include "service/console.h"
#include "service/log.h"
#include "winmidi/midi_link_controller.h"
#include "winmidi/midi_scan.h"

namespace corvalint {

namespace {

static_assert(sizeof(void*) == 8, "the offsets into the device library's records");

constexpr std::uint32_t kDeviceConnected = 1;
constexpr std::uint32_t kDeviceDisconnected = 2;
constexpr std::size_t kKindOffset = 8;
constexpr std::size_t kProductOffset = 24;
constexpr std::uint32_t kIdleMilliseconds = 10000;

char deviceNameBuffer[8192];  // guarded by the notification lock

template <class Value>
Value ReadAt(const void* record, std::size_t offset) {
  Value value;
  std::memcpy(&value, static_cast<const char*>(record) + offset, sizeof value);
  return value;
}

// The server that the device library's callbacks belong to.
UsbServerThread* CurrentServer() { return dynamic_cast<UsbServerThread*>(theUsbServer.load()); }

}  // namespace

std::uint32_t UsbServerThread::Run() {
  const MobileDeviceApi& library = Use<MobileDeviceApi>();
  midiLock.store(&publishedPortsLock, std::memory_order_release);
  ScanMidiDevices(GetMidiEndpointRegistry());

  void* notification = nullptr;
  const std::uint32_t result =
      library.amDeviceNotificationSubscribe(OnDeviceNotification, 0, 0, 0, &notification);
  LogInfo("Subscribed for notifications: %u\n", result);
  if (result != 0) LogError("AMDeviceNotificationSubscribe = %i", static_cast<int>(result));
  library.amRestoreRegisterForDeviceNotifications(OnDfuConnect, OnRecoveryConnect, OnDfuDisconnect,
                                                  OnRecoveryDisconnect, 0, this);
  while (running) Use<ClockApi>().sleep(kIdleMilliseconds);
  return library.amDeviceNotificationUnsubscribe(notification);
}

const char* UsbServerThread::GetDeviceIdentifier(DeviceHandle device) {
  const MobileDeviceApi& library = Use<MobileDeviceApi>();
  deviceNameBuffer[0] = '\0';
  // The user's name for the device is asked for and not used: everywhere here the identifier names
  // it.
  library.amDeviceCopyValue(device, nullptr, library.cfStringMakeConstantString("DeviceName"));
  const CoreString identifier = library.amDeviceCopyDeviceIdentifier(device);
  if (identifier != nullptr) {
    library.cfStringGetCString(identifier, deviceNameBuffer, sizeof deviceNameBuffer,
                               kCoreStringAscii);
  }
  return deviceNameBuffer;
}

void UsbServerThread::OnDeviceNotification(const void* record) try {
  if (UsbServerThread* server = CurrentServer()) server->HandleNotification(record);
} catch (const std::exception& failure) {
  // The device library's frames above this one know no exceptions.
  LogError("device notification failed: %s", failure.what());
}

// The console hears of a departure before the log, and of an arrival after it, on purpose.
void UsbServerThread::HandleNotification(const void* record) {
  CriticalSectionScope hold(notificationLock);
  const auto device = ReadAt<DeviceHandle>(record, 0);
  const auto kind = ReadAt<std::uint32_t>(record, kKindOffset);
  LogInfo("notification(%u)", kind);
  ConsolePrint("notification(%u)\n", kind);
  if (device == nullptr || ReadAt<std::uintptr_t>(device, kProductOffset) == 0) {
    LogInfo("invalid product id");
    ConsolePrint("invalid product id\n");
    return;
  }
  if (kind == kDeviceConnected) {
    LogInfo("Device connected: %s", GetDeviceIdentifier(device));
    ConsolePrint("Device connected: %s\n", GetDeviceIdentifier(device));
    OnDeviceConnected(device);
  } else if (kind == kDeviceDisconnected) {
    ConsolePrint("Device disconnected: %s\n", GetDeviceIdentifier(device));
    LogInfo("Device disconnected: %s", GetDeviceIdentifier(device));
    OnDeviceDisconnected(device);
  }
}

// A device can arrive while a sender holds `clientLock` or `midiLock`; only the very first one
// makes the controller, which announces what is open.
void UsbServerThread::OnDeviceConnected(DeviceHandle device) {
  ExternalMidiManager& manager = ManagerFor(GetDeviceIdentifier(device));
  auto* const client = new UsbClientThread(*this, device, manager);
  ConsolePrint("Device created\n");
  try {
    clients.Append(*client);
  } catch (...) {
    client->Finalize();
    throw;
  }
  client->Start();
}

ExternalMidiManager& UsbServerThread::ManagerFor(const std::string& deviceKey) {
  const auto known = managersByDevice.find(deviceKey);
  if (known != managersByDevice.end()) {
    known->second->deviceDisconnected = false;
    return *known->second;
  }
  auto manager = std::make_unique<ExternalMidiManager>(*this, publishedPortsLock, desktopNames);
  manager->SetDeviceKey(deviceKey);
  manager->SetDelegate(&GetMidiLinkController());
  // Known in both places or in none.
  const auto entry = managersByDevice.emplace(deviceKey, manager.get()).first;
  try {
    CriticalSectionScope hold(managersLock);
    managers.push_back(manager.get());
  } catch (...) {
    managersByDevice.erase(entry);
    throw;
  }
  return *manager.release();  // lives until the process ends
}

// Stops the client outside `clientLock` and never waits for its thread, which may be inside the
// device library that waits for this very callback.
void UsbServerThread::OnDeviceDisconnected(DeviceHandle device) {
  UsbClientThread* client;
  {
    CriticalSectionScope hold(clientLock);
    client = BorrowClientOf(device);
    if (client == nullptr) return;
    client->Manager().deviceDisconnected = true;
  }
  client->Stop();
  {
    CriticalSectionScope hold(clientLock);
    clients.Remove(*client);
  }
  const bool ownThread = client->HasThread();
  client->gate.Return();
  // A client whose thread could not be made has nobody else to end it.
  if (!ownThread) client->Finalize();
}

UsbClientThread* UsbServerThread::BorrowClientOf(DeviceHandle device) {
  for (DeviceClient* listed : ClientWalk(clients)) {
    auto* const client = static_cast<UsbClientThread*>(listed);
    if (client->Device() == device && client->gate.TryBorrow()) return client;
  }
  return nullptr;
}

// Also asks the managers of devices that are away.
bool UsbServerThread::AnyManagerOwns(const std::string& endpointName) {
  if (midiLock.load(std::memory_order_acquire) == nullptr) return false;
  std::vector<ExternalMidiManager*> asked;
  {
    CriticalSectionScope hold(managersLock);
    asked = managers;
  }
  for (ExternalMidiManager* manager : asked) {
    if (manager->HasEndpointNamed(endpointName)) return true;
  }
  // A long or exotic name stands on the desktop in another form than the device announced.
  return desktopNames.Contains(endpointName);
}

std::size_t UsbServerThread::ManagerCount() const {
  CriticalSectionScope hold(managersLock);
  return managers.size();
}

void UsbServerThread::OnDfuConnect(void* /*device*/, void* /*context*/) {
  ConsolePrint("Detected a DFU connection\n");
}

void UsbServerThread::OnDfuDisconnect(void* /*device*/, void* /*context*/) {
  ConsolePrint("Detected a DFU disconnection\n");
}

void UsbServerThread::OnRecoveryConnect(void* /*device*/, void* /*context*/) {
  ConsolePrint("Detected a Recovery Connection\n");
}

void UsbServerThread::OnRecoveryDisconnect(void* /*device*/, void* /*context*/) {
  ConsolePrint("Detected a Recovery Disconnection\n");
}

}  // namespace corvalint
