#include "platform/mobile_device_api.h"

#include "platform/missing_libraries.h"
#include "platform/windows/modules.h"

namespace corvalint {
namespace {

// Written once, when both modules have been found.
MobileDeviceApi bound;

// Answers false, to be asked again, while a module is missing: it may be loaded from the folder
// that the registry names later on. A function that a module does not have keeps its failing
// stand-in.
BOOL CALLBACK BindModules(INIT_ONCE*, void*, void**) {
  const HMODULE device = FindModule("iTunesMobileDevice.dll");
  if (device == nullptr) return FALSE;
  const HMODULE foundation = FindModule("CoreFoundation.dll");
  if (foundation == nullptr) return FALSE;

  bound = MissingMobileDevice();
  Bind(foundation, "__CFStringMakeConstantString", bound.cfStringMakeConstantString);
  Bind(foundation, "CFStringGetCString", bound.cfStringGetCString);
  Bind(device, "AMDeviceNotificationSubscribe", bound.amDeviceNotificationSubscribe);
  Bind(device, "AMDeviceNotificationUnsubscribe", bound.amDeviceNotificationUnsubscribe);
  Bind(device, "AMRestoreRegisterForDeviceNotifications",
       bound.amRestoreRegisterForDeviceNotifications);
  Bind(device, "AMDeviceCopyValue", bound.amDeviceCopyValue);
  Bind(device, "AMDeviceCopyDeviceIdentifier", bound.amDeviceCopyDeviceIdentifier);
  Bind(device, "AMDeviceConnect", bound.amDeviceConnect);
  Bind(device, "AMDeviceDisconnect", bound.amDeviceDisconnect);
  Bind(device, "AMDeviceGetConnectionID", bound.amDeviceGetConnectionId);
  Bind(device, "USBMuxConnectByPort", bound.usbMuxConnectByPort);
  return TRUE;
}

const MobileDeviceApi& Bound() {
  static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
  return InitOnceExecuteOnce(&once, BindModules, nullptr, nullptr) != 0 ? bound
                                                                        : MissingMobileDevice();
}

// An entry of the table: binds at its first call, then calls the bound function.
template <auto member>
struct Lazy;

template <class Result, class... Arguments, Result (*MobileDeviceApi::*member)(Arguments...)>
struct Lazy<member> {
  static Result Call(Arguments... arguments) { return (Bound().*member)(arguments...); }
};

// The library makes the stream's socket; a child process of the host must not keep it open.
std::uint32_t Connect(std::uint32_t connectionId, std::uint32_t port, std::int64_t* socket) {
  const std::uint32_t result = Bound().usbMuxConnectByPort(connectionId, port, socket);
  if (result == 0) {
    SetHandleInformation(reinterpret_cast<HANDLE>(*socket), HANDLE_FLAG_INHERIT, 0);
  }
  return result;
}

}  // namespace

const MobileDeviceApi& MobileDeviceApi::System() {
  using Api = MobileDeviceApi;
  static constexpr Api table{
      .cfStringMakeConstantString = Lazy<&Api::cfStringMakeConstantString>::Call,
      .cfStringGetCString = Lazy<&Api::cfStringGetCString>::Call,
      .amDeviceNotificationSubscribe = Lazy<&Api::amDeviceNotificationSubscribe>::Call,
      .amDeviceNotificationUnsubscribe = Lazy<&Api::amDeviceNotificationUnsubscribe>::Call,
      .amRestoreRegisterForDeviceNotifications =
          Lazy<&Api::amRestoreRegisterForDeviceNotifications>::Call,
      .amDeviceCopyValue = Lazy<&Api::amDeviceCopyValue>::Call,
      .amDeviceCopyDeviceIdentifier = Lazy<&Api::amDeviceCopyDeviceIdentifier>::Call,
      .amDeviceConnect = Lazy<&Api::amDeviceConnect>::Call,
      .amDeviceDisconnect = Lazy<&Api::amDeviceDisconnect>::Call,
      .amDeviceGetConnectionId = Lazy<&Api::amDeviceGetConnectionId>::Call,
      .usbMuxConnectByPort = Connect,
  };
  return table;
}

}  // namespace corvalint
