#include "platform/mobile_device_api.h"

#include "platform/missing_libraries.h"
#include "platform/windows/modules.h"

namespace corvalint {
namespace {

// Each written once, when its module has been found. A function that a module does not have keeps
// its failing stand-in.
MobileDeviceApi deviceLibrary;
MobileDeviceApi coreFoundation;

// Both answer false, to be asked again, while their module is missing: it may be loaded from the
// folder that the registry names later on.
BOOL CALLBACK BindDeviceLibrary(INIT_ONCE*, void*, void**) {
  const HMODULE module = FindModule("iTunesMobileDevice.dll");
  if (module == nullptr) return FALSE;
  MobileDeviceApi& bound = deviceLibrary;
  bound = MissingMobileDevice();
  Bind(module, "AMDeviceNotificationSubscribe", bound.amDeviceNotificationSubscribe);
  Bind(module, "AMDeviceNotificationUnsubscribe", bound.amDeviceNotificationUnsubscribe);
  Bind(module, "AMRestoreRegisterForDeviceNotifications",
       bound.amRestoreRegisterForDeviceNotifications);
  Bind(module, "AMDeviceCopyValue", bound.amDeviceCopyValue);
  Bind(module, "AMDeviceCopyDeviceIdentifier", bound.amDeviceCopyDeviceIdentifier);
  Bind(module, "AMDeviceConnect", bound.amDeviceConnect);
  Bind(module, "AMDeviceDisconnect", bound.amDeviceDisconnect);
  Bind(module, "AMDeviceGetConnectionID", bound.amDeviceGetConnectionId);
  Bind(module, "USBMuxConnectByPort", bound.usbMuxConnectByPort);
  return TRUE;
}

BOOL CALLBACK BindCoreFoundation(INIT_ONCE*, void*, void**) {
  const HMODULE module = FindModule("CoreFoundation.dll");
  if (module == nullptr) return FALSE;
  coreFoundation = MissingMobileDevice();
  Bind(module, "__CFStringMakeConstantString", coreFoundation.cfStringMakeConstantString);
  Bind(module, "CFStringGetCString", coreFoundation.cfStringGetCString);
  return TRUE;
}

const MobileDeviceApi& DeviceLibrary() {
  static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
  return InitOnceExecuteOnce(&once, BindDeviceLibrary, nullptr, nullptr) != 0
             ? deviceLibrary
             : MissingMobileDevice();
}

const MobileDeviceApi& CoreFoundation() {
  static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
  return InitOnceExecuteOnce(&once, BindCoreFoundation, nullptr, nullptr) != 0
             ? coreFoundation
             : MissingMobileDevice();
}

// An entry of the table: binds at its first call, then calls the bound function.
template <const MobileDeviceApi& (*bound)(), auto member>
struct Lazy;

template <const MobileDeviceApi& (*bound)(), class Result, class... Arguments,
          Result (*MobileDeviceApi::*member)(Arguments...)>
struct Lazy<bound, member> {
  static Result Call(Arguments... arguments) { return (bound().*member)(arguments...); }
};

template <auto member>
using LazyDevice = Lazy<DeviceLibrary, member>;
template <auto member>
using LazyFoundation = Lazy<CoreFoundation, member>;

// The library makes the stream's socket; a child process of the host must not keep it open.
std::uint32_t Connect(std::uint32_t connectionId, std::uint32_t port, std::int64_t* socket) {
  const std::uint32_t result = DeviceLibrary().usbMuxConnectByPort(connectionId, port, socket);
  if (result == 0) {
    SetHandleInformation(reinterpret_cast<HANDLE>(*socket), HANDLE_FLAG_INHERIT, 0);
  }
  return result;
}

}  // namespace

const MobileDeviceApi& MobileDeviceApi::System() {
  using Api = MobileDeviceApi;
  static constexpr Api table{
      .cfStringMakeConstantString = LazyFoundation<&Api::cfStringMakeConstantString>::Call,
      .cfStringGetCString = LazyFoundation<&Api::cfStringGetCString>::Call,
      .amDeviceNotificationSubscribe = LazyDevice<&Api::amDeviceNotificationSubscribe>::Call,
      .amDeviceNotificationUnsubscribe = LazyDevice<&Api::amDeviceNotificationUnsubscribe>::Call,
      .amRestoreRegisterForDeviceNotifications =
          LazyDevice<&Api::amRestoreRegisterForDeviceNotifications>::Call,
      .amDeviceCopyValue = LazyDevice<&Api::amDeviceCopyValue>::Call,
      .amDeviceCopyDeviceIdentifier = LazyDevice<&Api::amDeviceCopyDeviceIdentifier>::Call,
      .amDeviceConnect = LazyDevice<&Api::amDeviceConnect>::Call,
      .amDeviceDisconnect = LazyDevice<&Api::amDeviceDisconnect>::Call,
      .amDeviceGetConnectionId = LazyDevice<&Api::amDeviceGetConnectionId>::Call,
      .usbMuxConnectByPort = Connect,
  };
  return table;
}

}  // namespace corvalint
