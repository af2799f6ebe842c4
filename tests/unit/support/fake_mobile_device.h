#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/mobile_device_api.h"
#include "support/stream_peer.h"

namespace corvalint::test {

// A scripted device library, installed for as long as it lives. It logs every call, devices shown
// by their identifier (those without one as "nameless"):
//   CFStringMakeConstantString(DeviceName), AMDeviceCopyValue(pad, 0, DeviceName),
//   AMDeviceCopyDeviceIdentifier(pad), CFStringGetCString(pad, 8192, 0x600),
//   AMDeviceNotificationSubscribe(0, 0, 0), AMDeviceNotificationUnsubscribe(ours),
//   AMRestoreRegisterForDeviceNotifications(0), AMDeviceConnect(pad),
//   AMDeviceGetConnectionID(pad), USBMuxConnectByPort(7, 5B9B), AMDeviceDisconnect(pad)
// The port is shown as the bytes lie in memory, in hexadecimal. Any thread.
class FakeMobileDevice {
 public:
  using Calls = std::vector<std::string>;

  FakeMobileDevice();
  ~FakeMobileDevice();
  FakeMobileDevice(const FakeMobileDevice&) = delete;
  FakeMobileDevice& operator=(const FakeMobileDevice&) = delete;

  // The handle of a usable device; its record lives as long as the fake.
  DeviceHandle AddDevice(std::optional<std::string> identifier, std::uint32_t connectionId);
  // The word that makes a device usable when it is not 0.
  static void SetProduct(DeviceHandle device, std::uintptr_t product);

  // The number that the library gives for a device.
  void SetConnectionId(DeviceHandle device, std::uint32_t connectionId);

  // What the next calls answer, one each; afterwards 0 again.
  void ConnectAnswers(DeviceHandle device, std::deque<std::uint32_t> answers);
  void PortAnswers(std::deque<std::uint32_t> answers);
  // What the next streams are called, one each, although the library says that it opened them.
  void PortSockets(std::deque<std::int64_t> sockets);
  void SubscribeAnswers(std::uint32_t answer) { subscribeAnswer = answer; }
  void UnsubscribeAnswers(std::uint32_t answer) { unsubscribeAnswer = answer; }
  // Buffers of the streams that are opened from now on.
  void SetStreamBuffer(int size) { streamBuffer = size; }

  // Runs inside every call of that function ("AMDeviceConnect"), with no lock held.
  void WhenCalled(const std::string& function, std::function<void()> action);
  // From now on nothing runs inside any call.
  void ForgetActions();

  // The calls since the last time, oldest first.
  Calls TakeCalls();
  int Count(const std::string& function) const;
  // Waits until the function has been called that often in all; false, and a failed test, when
  // that takes too long.
  bool WaitForCalls(const std::string& function, int count);

  // Waits for the next stream that the library opens to that device; null, and a failed test, when
  // none comes.
  std::unique_ptr<StreamPeer> NextStream(DeviceHandle device);

  // What the subscriber is told; `kind` 1 is an arrival, 2 a departure. Runs on the caller's
  // thread.
  void Notify(DeviceHandle device, std::uint32_t kind);
  bool Subscribed() const;

  struct RestoreCallbacks {
    RestoreCallback dfuConnect, recoveryConnect, dfuDisconnect, recoveryDisconnect;
    void* context;
  };
  RestoreCallbacks Restore() const;

 private:
  struct Device {
    std::array<std::uintptr_t, 4> record{};  // first, so that a handle is its address
    std::optional<std::string> identifier;
    std::uint32_t connectionId = 0;
    std::deque<std::uint32_t> connectAnswers;
    std::deque<std::unique_ptr<StreamPeer>> streams;
  };
  struct Table;

  static FakeMobileDevice& Current();
  static std::string NameOf(DeviceHandle device);
  void Log(const std::string& function, const std::string& arguments);

  mutable std::mutex mutex;
  std::condition_variable changed;
  std::list<Device> devices;
  std::deque<std::uint32_t> portAnswers;
  std::deque<std::int64_t> portSockets;
  std::uint32_t subscribeAnswer = 0;
  std::uint32_t unsubscribeAnswer = 0;
  int streamBuffer = 0;
  DeviceNotificationCallback callback = nullptr;
  RestoreCallbacks restore{};
  std::map<std::string, std::function<void()>> actions;
  std::map<std::string, int> counts;
  Calls calls;
};

}  // namespace corvalint::test
