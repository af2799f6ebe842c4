#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// Apple's mobile device library (iTunesMobileDevice.dll) and the two functions of
// CoreFoundation.dll that it needs, found by module name at the first call of any of them.

// A device as the library knows it; the library's own, valid until its departure has been handled.
using DeviceHandle = void*;
// A text of CoreFoundation. What a "Copy" function returns is the caller's to release, which this
// bridge does not do: each arrival and departure leaves a few short texts behind.
using CoreString = const void*;
// Arrivals and departures, on a thread of the device library; `record` is valid during the call. No
// exception may leave it.
using DeviceNotificationCallback = void (*)(const void* record);
// Devices in DFU or recovery mode, on a thread of the device library.
using RestoreCallback = void (*)(void* device, void* context);

inline constexpr std::uint32_t kCoreStringAscii = 0x0600;  // kCFStringEncodingASCII

// What every function answers that gives a result while the library is missing.
inline constexpr std::uint32_t kDeviceLibraryMissing = 0xE8000001;

// The functions used, with the arguments of the real ones. Any thread. Results of 32 bits are 0 on
// success and a code of the library otherwise, but for the connection id.
struct MobileDeviceApi {
  // A text that is never freed; equal ones are the same. Null when it cannot be made.
  CoreString (*cfStringMakeConstantString)(const char* text);
  // Copies the text into `buffer` with a zero behind it. Non-zero when it fitted.
  std::uint8_t (*cfStringGetCString)(CoreString string, char* buffer, std::int64_t size,
                                     std::uint32_t encoding);

  // Has `callback` called for every device that is attached, and for what changes from then on.
  // `notification` receives what ends that.
  std::uint32_t (*amDeviceNotificationSubscribe)(DeviceNotificationCallback callback,
                                                 std::uint32_t unused1, std::uint32_t unused2,
                                                 std::uintptr_t context, void** notification);
  std::uint32_t (*amDeviceNotificationUnsubscribe)(void* notification);
  // Has the callbacks called with `context` until the process ends.
  std::uint32_t (*amRestoreRegisterForDeviceNotifications)(RestoreCallback dfuConnect,
                                                           RestoreCallback recoveryConnect,
                                                           RestoreCallback dfuDisconnect,
                                                           RestoreCallback recoveryDisconnect,
                                                           std::uint32_t unused, void* context);
  // A value that the device tells of itself, and its identifier; null when it cannot be had.
  CoreString (*amDeviceCopyValue)(DeviceHandle device, CoreString domain, CoreString key);
  CoreString (*amDeviceCopyDeviceIdentifier)(DeviceHandle device);
  // May wait for the device.
  std::uint32_t (*amDeviceConnect)(DeviceHandle device);
  std::uint32_t (*amDeviceDisconnect)(DeviceHandle device);
  // usbmux's number of the device, 0 when it has none.
  std::uint32_t (*amDeviceGetConnectionId)(DeviceHandle device);
  // Opens a stream to a port of the device; may wait for it. `port` in network byte order. `socket`
  // has room for the 64 bits that the library may store, and what it stores is the caller's to
  // close.
  std::uint32_t (*usbMuxConnectByPort)(std::uint32_t connectionId, std::uint32_t port,
                                       std::int64_t* socket);

  static const MobileDeviceApi& System();
};

}  // namespace corvalint
