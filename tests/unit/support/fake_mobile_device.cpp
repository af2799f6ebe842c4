#include "support/fake_mobile_device.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

namespace corvalint::test {

namespace {

constexpr std::chrono::seconds kTimeOut{30};

std::atomic<FakeMobileDevice*> current{nullptr};
int ours;  // its address is the notification handle

std::string Hex(std::uint32_t value) {
  char text[12];
  std::snprintf(text, sizeof text, "%X", value);
  return text;
}

}  // namespace

struct FakeMobileDevice::Table {
  static Device& Of(DeviceHandle handle) { return *static_cast<Device*>(handle); }

  static CoreString MakeConstantString(const char* text) {
    Current().Log("CFStringMakeConstantString", text);
    return text;
  }

  static std::uint8_t GetCString(CoreString string, char* buffer, std::int64_t size,
                                 std::uint32_t encoding) {
    const char* const text = static_cast<const char*>(string);
    Current().Log("CFStringGetCString",
                  std::string(text) + ", " + std::to_string(size) + ", 0x" + Hex(encoding));
    if (static_cast<std::int64_t>(std::strlen(text)) >= size) return 0;
    std::strcpy(buffer, text);
    return 1;
  }

  static std::uint32_t Subscribe(DeviceNotificationCallback callback, std::uint32_t unused1,
                                 std::uint32_t unused2, std::uintptr_t context,
                                 void** notification) {
    FakeMobileDevice& fake = Current();
    fake.Log(
        "AMDeviceNotificationSubscribe",
        std::to_string(unused1) + ", " + std::to_string(unused2) + ", " + std::to_string(context));
    if (fake.subscribeAnswer != 0) return fake.subscribeAnswer;
    *notification = &ours;
    const std::lock_guard hold(fake.mutex);
    fake.callback = callback;
    return 0;
  }

  static std::uint32_t Unsubscribe(void* notification) {
    FakeMobileDevice& fake = Current();
    fake.Log("AMDeviceNotificationUnsubscribe", notification == &ours ? "ours" : "another");
    const std::lock_guard hold(fake.mutex);
    fake.callback = nullptr;
    return fake.unsubscribeAnswer;
  }

  static std::uint32_t RegisterRestore(RestoreCallback dfuConnect, RestoreCallback recoveryConnect,
                                       RestoreCallback dfuDisconnect,
                                       RestoreCallback recoveryDisconnect, std::uint32_t unused,
                                       void* context) {
    FakeMobileDevice& fake = Current();
    {
      const std::lock_guard hold(fake.mutex);
      fake.restore = {dfuConnect, recoveryConnect, dfuDisconnect, recoveryDisconnect, context};
    }
    fake.Log("AMRestoreRegisterForDeviceNotifications", std::to_string(unused));
    return 77;  // nobody looks at it
  }

  static CoreString CopyValue(DeviceHandle device, CoreString domain, CoreString key) {
    Current().Log("AMDeviceCopyValue", NameOf(device) + ", " + (domain == nullptr ? "0" : "?") +
                                           ", " + static_cast<const char*>(key));
    return "the name that the user gave";
  }

  static CoreString CopyIdentifier(DeviceHandle device) {
    Current().Log("AMDeviceCopyDeviceIdentifier", NameOf(device));
    const auto& identifier = Of(device).identifier;
    return identifier ? identifier->c_str() : nullptr;
  }

  static std::uint32_t Connect(DeviceHandle device) {
    FakeMobileDevice& fake = Current();
    fake.Log("AMDeviceConnect", NameOf(device));
    const std::lock_guard hold(fake.mutex);
    auto& answers = Of(device).connectAnswers;
    if (answers.empty()) return 0;
    const std::uint32_t answer = answers.front();
    answers.pop_front();
    return answer;
  }

  static std::uint32_t Disconnect(DeviceHandle device) {
    Current().Log("AMDeviceDisconnect", NameOf(device));
    return 0;
  }

  static std::uint32_t GetConnectionId(DeviceHandle device) {
    Current().Log("AMDeviceGetConnectionID", NameOf(device));
    return Of(device).connectionId;
  }

  // Stores 64 bits; something also when it fails.
  static std::uint32_t MuxConnect(std::uint32_t connectionId, std::uint32_t port,
                                  std::int64_t* socket) {
    FakeMobileDevice& fake = Current();
    std::array<unsigned char, 4> bytes;
    std::memcpy(bytes.data(), &port, sizeof port);
    fake.Log("USBMuxConnectByPort",
             std::to_string(connectionId) + ", " + Hex(std::uint32_t{bytes[0]} << 8 | bytes[1]));
    const std::lock_guard hold(fake.mutex);
    if (!fake.portAnswers.empty()) {
      const std::uint32_t answer = fake.portAnswers.front();
      fake.portAnswers.pop_front();
      *socket = 0xBEEF;
      if (answer != 0) return answer;
    }
    if (!fake.portSockets.empty()) {
      *socket = fake.portSockets.front();
      fake.portSockets.pop_front();
      return 0;
    }
    for (Device& device : fake.devices) {
      if (device.connectionId != connectionId) continue;
      StreamPair pair = MakeStreamPair(fake.streamBuffer);
      *socket = pair.library;
      device.streams.push_back(std::move(pair.peer));
      fake.changed.notify_all();
      return 0;
    }
    ADD_FAILURE() << "a stream to connection " << connectionId << ", which no device has";
    return 1;
  }

  static const MobileDeviceApi& Get() {
    static constexpr MobileDeviceApi table{
        .cfStringMakeConstantString = MakeConstantString,
        .cfStringGetCString = GetCString,
        .amDeviceNotificationSubscribe = Subscribe,
        .amDeviceNotificationUnsubscribe = Unsubscribe,
        .amRestoreRegisterForDeviceNotifications = RegisterRestore,
        .amDeviceCopyValue = CopyValue,
        .amDeviceCopyDeviceIdentifier = CopyIdentifier,
        .amDeviceConnect = Connect,
        .amDeviceDisconnect = Disconnect,
        .amDeviceGetConnectionId = GetConnectionId,
        .usbMuxConnectByPort = MuxConnect,
    };
    return table;
  }
};

FakeMobileDevice::FakeMobileDevice() {
  EXPECT_EQ(current.exchange(this), nullptr) << "one device library at a time";
  Install<MobileDeviceApi>(&Table::Get());
}

FakeMobileDevice::~FakeMobileDevice() {
  Install<MobileDeviceApi>(nullptr);
  current = nullptr;
}

FakeMobileDevice& FakeMobileDevice::Current() { return *current.load(); }

std::string FakeMobileDevice::NameOf(DeviceHandle device) {
  return static_cast<Device*>(device)->identifier.value_or("nameless");
}

DeviceHandle FakeMobileDevice::AddDevice(std::optional<std::string> identifier,
                                         std::uint32_t connectionId) {
  const std::lock_guard hold(mutex);
  Device& device = devices.emplace_back();
  device.record[3] = 1;
  device.identifier = std::move(identifier);
  device.connectionId = connectionId;
  return &device;
}

void FakeMobileDevice::SetProduct(DeviceHandle device, std::uintptr_t product) {
  static_cast<Device*>(device)->record[3] = product;
}

void FakeMobileDevice::SetConnectionId(DeviceHandle device, std::uint32_t connectionId) {
  const std::lock_guard hold(mutex);
  static_cast<Device*>(device)->connectionId = connectionId;
}

void FakeMobileDevice::ConnectAnswers(DeviceHandle device, std::deque<std::uint32_t> answers) {
  const std::lock_guard hold(mutex);
  static_cast<Device*>(device)->connectAnswers = std::move(answers);
}

void FakeMobileDevice::PortAnswers(std::deque<std::uint32_t> answers) {
  const std::lock_guard hold(mutex);
  portAnswers = std::move(answers);
}

void FakeMobileDevice::PortSockets(std::deque<std::int64_t> sockets) {
  const std::lock_guard hold(mutex);
  portSockets = std::move(sockets);
}

void FakeMobileDevice::WhenCalled(const std::string& function, std::function<void()> action) {
  const std::lock_guard hold(mutex);
  actions[function] = std::move(action);
}

void FakeMobileDevice::Log(const std::string& function, const std::string& arguments) {
  std::function<void()> action;
  {
    const std::lock_guard hold(mutex);
    calls.push_back(function + "(" + arguments + ")");
    ++counts[function];
    changed.notify_all();
    const auto found = actions.find(function);
    if (found != actions.end()) action = found->second;
  }
  if (action) action();
}

void FakeMobileDevice::ForgetActions() {
  const std::lock_guard hold(mutex);
  actions.clear();
}

FakeMobileDevice::Calls FakeMobileDevice::TakeCalls() {
  const std::lock_guard hold(mutex);
  return std::exchange(calls, {});
}

int FakeMobileDevice::Count(const std::string& function) const {
  const std::lock_guard hold(mutex);
  const auto found = counts.find(function);
  return found == counts.end() ? 0 : found->second;
}

bool FakeMobileDevice::WaitForCalls(const std::string& function, int count) {
  std::unique_lock hold(mutex);
  const bool came = changed.wait_for(hold, kTimeOut, [&] { return counts[function] >= count; });
  EXPECT_TRUE(came) << function << " was not called " << count << " times";
  return came;
}

std::unique_ptr<StreamPeer> FakeMobileDevice::NextStream(DeviceHandle device) {
  auto& streams = static_cast<Device*>(device)->streams;
  std::unique_lock hold(mutex);
  if (!changed.wait_for(hold, kTimeOut, [&] { return !streams.empty(); })) {
    ADD_FAILURE() << "no stream was opened";
    return nullptr;
  }
  auto peer = std::move(streams.front());
  streams.pop_front();
  return peer;
}

void FakeMobileDevice::Notify(DeviceHandle device, std::uint32_t kind) {
  std::array<unsigned char, 16> record{};
  std::memcpy(record.data(), &device, sizeof device);
  std::memcpy(record.data() + 8, &kind, sizeof kind);
  DeviceNotificationCallback subscriber;
  {
    const std::lock_guard hold(mutex);
    subscriber = callback;
  }
  ASSERT_NE(subscriber, nullptr) << "nobody has subscribed";
  subscriber(record.data());
}

bool FakeMobileDevice::Subscribed() const {
  const std::lock_guard hold(mutex);
  return callback != nullptr;
}

FakeMobileDevice::RestoreCallbacks FakeMobileDevice::Restore() const {
  const std::lock_guard hold(mutex);
  return restore;
}

}  // namespace corvalint::test
