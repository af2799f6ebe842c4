// The functions that the device library's stand-in exports, behind "Desk".
#include <winsock2.h>
// winsock2.h before windows.h
#include "call_book.h"
#include "core_foundation.h"
#include "mobile_device.h"
#include "outbox.h"
#include "stand_in.h"

namespace {

using corvalint::desk::Call;
using corvalint::desk::DeviceLibrary;
using corvalint::desk::MobileDevice;
using corvalint::desk::NotificationCallback;
using corvalint::desk::Number;
using corvalint::desk::Outbox;
using corvalint::desk::RestoreCallback;

constexpr std::uint32_t kBadArgument = 0xE8000007;

std::string KeyOf(const void* record) {
  const auto device = DeviceLibrary::Get().Find(record);
  return device ? device->key : std::string("?");
}

std::shared_ptr<MobileDevice> Known(const char* function, const void* record) {
  auto device = DeviceLibrary::Get().Find(record);
  if (!device) Outbox::Get().Violation(std::string(function) + " on no device");
  return device;
}

}  // namespace

DESK_EXPORT std::uint32_t DeskAmSubscribe(NotificationCallback callback, std::uint32_t first,
                                          std::uint32_t second, void* context, void** handle) {
  Call call("AMDeviceNotificationSubscribe", {first, second, Number(context)});
  if (call.Scripted()) return call.Result<std::uint32_t>();
  if (callback == nullptr || handle == nullptr) return call.Done(kBadArgument);
  *handle = reinterpret_cast<void*>(DeviceLibrary::Get().Subscribe(callback, context));
  return call.Done<std::uint32_t>(0);
}

DESK_EXPORT std::uint32_t DeskAmUnsubscribe(void* handle) {
  Call call("AMDeviceNotificationUnsubscribe", {Number(handle)});
  if (call.Scripted()) return call.Result<std::uint32_t>();
  const bool known = DeviceLibrary::Get().Unsubscribe(reinterpret_cast<std::uintptr_t>(handle));
  return call.Done(known ? 0 : kBadArgument);
}

DESK_EXPORT std::uint32_t DeskAmRestoreRegister(RestoreCallback dfuConnect,
                                                RestoreCallback recoveryConnect,
                                                RestoreCallback dfuDisconnect,
                                                RestoreCallback recoveryDisconnect,
                                                std::uint32_t unused, void* context) {
  Call call("AMRestoreRegisterForDeviceNotifications", {unused, Number(context)});
  if (call.Scripted()) return call.Result<std::uint32_t>();
  const RestoreCallback callbacks[4] = {dfuConnect, recoveryConnect, dfuDisconnect,
                                        recoveryDisconnect};
  DeviceLibrary::Get().RegisterRestore(callbacks, context);
  return call.Done<std::uint32_t>(0);
}

DESK_EXPORT const void* DeskAmCopyValue(void* record, const void* domain, const void* key) {
  Call call("AMDeviceCopyValue", {Number(record), Number(domain)},
            KeyOf(record) + " " + corvalint::desk::TextOf(key));
  const auto device = Known("AMDeviceCopyValue", record);
  const bool found = !call.Scripted() && device && device->displayName &&
                     corvalint::desk::TextOf(key) == "DeviceName";
  call.Done(found ? 1 : 0);
  return found ? corvalint::desk::MakeString(*device->displayName) : nullptr;
}

DESK_EXPORT const void* DeskAmCopyIdentifier(void* record) {
  Call call("AMDeviceCopyDeviceIdentifier", {Number(record)}, KeyOf(record));
  const auto device = Known("AMDeviceCopyDeviceIdentifier", record);
  const bool found = !call.Scripted() && device && device->identifier;
  call.Done(found ? 1 : 0);
  return found ? corvalint::desk::MakeString(*device->identifier) : nullptr;
}

DESK_EXPORT std::uint32_t DeskAmConnect(void* record) {
  Call call("AMDeviceConnect", {Number(record)}, KeyOf(record));
  if (call.Scripted()) return call.Result<std::uint32_t>();
  const auto device = Known("AMDeviceConnect", record);
  return call.Done(device ? device->connectAnswers.Next() : kBadArgument);
}

DESK_EXPORT std::uint32_t DeskAmDisconnect(void* record) {
  Call call("AMDeviceDisconnect", {Number(record)}, KeyOf(record));
  if (call.Scripted()) return call.Result<std::uint32_t>();
  return call.Done<std::uint32_t>(Known("AMDeviceDisconnect", record) ? 0 : kBadArgument);
}

DESK_EXPORT std::uint32_t DeskAmConnectionId(void* record) {
  Call call("AMDeviceGetConnectionID", {Number(record)}, KeyOf(record));
  if (call.Scripted()) return call.Result<std::uint32_t>();
  const auto device = Known("AMDeviceGetConnectionID", record);
  return call.Done<std::uint32_t>(device ? device->connectionId.load() : 0);
}

DESK_EXPORT std::uint32_t DeskUsbMuxConnect(std::uint32_t connectionId, std::uint32_t portInOrder,
                                            int* stream) {
  Call call("USBMuxConnectByPort", {connectionId, portInOrder});
  if (call.Scripted()) return call.Result<std::uint32_t>();
  if (stream == nullptr) return call.Done(kBadArgument);
  if ((portInOrder & 0xFFFF) != htons(23451))
    Outbox::Get().Violation("stream to a port nobody listens on");
  return call.Done(DeviceLibrary::Get().OpenStream(connectionId, stream));
}
