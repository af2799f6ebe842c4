#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// Apple's mobile device library (iTunesMobileDevice.dll) and the two functions of
// CoreFoundation.dll that it needs, found by module name at the first call of any of them.

using DeviceHandle = void*;
using CoreString = const void*;
using DeviceNotificationCallback = void (*)(const void* record);
using RestoreCallback = void (*)(void* device, void* context);

inline constexpr std::uint32_t kCoreStringAscii = 0x0600;  // kCFStringEncodingASCII

// What every function answers that gives a result while the library is missing.
inline constexpr std::uint32_t kDeviceLibraryMissing = 0xE8000001;

struct MobileDeviceApi {
  CoreString (*cfStringMakeConstantString)(const char* text);
  // Non-zero when the text fitted.
  std::uint8_t (*cfStringGetCString)(CoreString string, char* buffer, std::int64_t size,
                                     std::uint32_t encoding);

  std::uint32_t (*amDeviceNotificationSubscribe)(DeviceNotificationCallback callback,
                                                 std::uint32_t unused1, std::uint32_t unused2,
                                                 std::uintptr_t context, void** notification);
  std::uint32_t (*amDeviceNotificationUnsubscribe)(void* notification);
  std::uint32_t (*amRestoreRegisterForDeviceNotifications)(RestoreCallback dfuConnect,
                                                           RestoreCallback recoveryConnect,
                                                           RestoreCallback dfuDisconnect,
                                                           RestoreCallback recoveryDisconnect,
                                                           std::uint32_t unused, void* context);
  CoreString (*amDeviceCopyValue)(DeviceHandle device, CoreString domain, CoreString key);
  CoreString (*amDeviceCopyDeviceIdentifier)(DeviceHandle device);
  std::uint32_t (*amDeviceConnect)(DeviceHandle device);
  std::uint32_t (*amDeviceDisconnect)(DeviceHandle device);
  std::uint32_t (*amDeviceGetConnectionId)(DeviceHandle device);
  // `port` in network byte order. 0 on success; `socket` has room for the 64 bits that the library
  // may store.
  std::uint32_t (*usbMuxConnectByPort)(std::uint32_t connectionId, std::uint32_t port,
                                       std::int64_t* socket);

  static const MobileDeviceApi& System();
};

}  // namespace corvalint
