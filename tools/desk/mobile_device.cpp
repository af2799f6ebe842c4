#include <winsock2.h>
// winsock2.h before windows.h
#include "mobile_device.h"
#include "outbox.h"

#include <ws2tcpip.h>

#include <stdexcept>
#include <utility>

namespace corvalint::desk {

namespace {
constexpr std::uint32_t kUnknownConnection = 0xE8000003;
constexpr std::uint32_t kRefused = 0xE8000004;
constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kDisconnected = 2;
}  // namespace

void AnswerScript::Set(std::vector<std::uint32_t> list) {
  const std::lock_guard hold(lock);
  answers = std::move(list);
  position = 0;
}

std::uint32_t AnswerScript::Next() {
  const std::lock_guard hold(lock);
  if (answers.empty()) return 0;
  const std::uint32_t answer = answers[position];
  if (position + 1 < answers.size()) ++position;
  return answer;
}

DeviceLibrary& DeviceLibrary::Get() {
  static DeviceLibrary* library = new DeviceLibrary;
  return *library;
}

std::shared_ptr<MobileDevice> DeviceLibrary::Device(const std::string& key, bool make) {
  const std::lock_guard hold(lock);
  const auto found = devices.find(key);
  if (found != devices.end()) return found->second;
  if (!make) throw std::runtime_error("no such device: " + key);
  auto device = std::make_shared<MobileDevice>();
  device->key = key;
  device->record = new DeviceRecord;
  devices[key] = device;
  byRecord[device->record] = device;
  return device;
}

void DeviceLibrary::Attach(const std::string& key, bool freshRecord) {
  const auto device = Device(key, false);
  {
    const std::lock_guard hold(lock);
    if (freshRecord) {
      const std::uint64_t word = device->record->productWord;
      device->record = new DeviceRecord;
      device->record->productWord = word;
      byRecord[device->record] = device;
    }
    device->attached = true;
  }
  Deliver(device, kConnected);
}

void DeviceLibrary::Detach(const std::string& key) {
  const auto device = Device(key, false);
  device->attached = false;
  Deliver(device, kDisconnected);
}

void DeviceLibrary::Notify(const std::string& key, std::uint32_t kind) {
  Deliver(key == "null" ? nullptr : Device(key, false), kind);
}

void DeviceLibrary::Deliver(const std::shared_ptr<MobileDevice>& device, std::uint32_t kind) {
  DeviceRecord* record = device ? device->record : nullptr;
  notifier.Post([this, device, record, kind] {
    if (device && kind == kConnected) device->announced = true;
    if (device && kind == kDisconnected) device->announced = false;
    std::vector<Subscription> targets;
    {
      const std::lock_guard hold(lock);
      targets = subscriptions;
    }
    for (const Subscription& target : targets) {
      if (!target.active) continue;
      NotificationRecord notification;
      notification.device = record;
      notification.kind = kind;
      target.callback(&notification, target.context);
    }
    Outbox::Get().Event("notified " + (device ? device->key : std::string("null")) + " " +
                        std::to_string(kind));
  });
}

// Runs on the notifier's thread, like everything that is told to subscribers, so that a device that
// arrives meanwhile is told exactly once.
void DeviceLibrary::AnnouncePresent(std::uintptr_t subscription) {
  Subscription target;
  std::vector<std::shared_ptr<MobileDevice>> present;
  {
    const std::lock_guard hold(lock);
    for (Subscription& entry : subscriptions) {
      if (entry.id != subscription) continue;
      entry.active = true;
      target = entry;
    }
    for (const auto& [key, device] : devices) {
      if (device->announced) present.push_back(device);
    }
  }
  if (target.callback == nullptr) return;
  for (const auto& device : present) {
    NotificationRecord notification;
    notification.device = device->record;
    notification.kind = kConnected;
    target.callback(&notification, target.context);
    Outbox::Get().Event("announced " + device->key);
  }
}

void DeviceLibrary::Restore(const std::string& which) {
  static const char* const kNames[] = {"dfu-connect", "recovery-connect", "dfu-disconnect",
                                       "recovery-disconnect"};
  for (std::size_t i = 0; i < 4; ++i) {
    if (which != kNames[i]) continue;
    notifier.Post([this, i, which] {
      std::unique_lock hold(lock);
      const RestoreCallback callback = restoreCallbacks[i];
      void* const context = restoreContext;
      hold.unlock();
      static DeviceRecord restoreDevice;
      if (callback != nullptr) callback(&restoreDevice, context);
      Outbox::Get().Event("restored " + which + (callback != nullptr ? " 1" : " 0"));
    });
    return;
  }
  throw std::runtime_error("no such restore notification: " + which);
}

std::uintptr_t DeviceLibrary::Subscribe(NotificationCallback callback, void* context) {
  std::uintptr_t id = 0;
  {
    const std::lock_guard hold(lock);
    id = lastSubscription += 16;
    subscriptions.push_back({id, callback, context, false});
  }
  notifier.Post([this, id] { AnnouncePresent(id); });
  return id;
}

bool DeviceLibrary::Unsubscribe(std::uintptr_t subscription) {
  const std::lock_guard hold(lock);
  return std::erase_if(subscriptions, [subscription](const Subscription& entry) {
           return entry.id == subscription;
         }) != 0;
}

void DeviceLibrary::RegisterRestore(const RestoreCallback (&callbacks)[4], void* context) {
  const std::lock_guard hold(lock);
  std::copy(std::begin(callbacks), std::end(callbacks), std::begin(restoreCallbacks));
  restoreContext = context;
}

std::shared_ptr<MobileDevice> DeviceLibrary::Find(const void* record) {
  const std::lock_guard hold(lock);
  const auto found = byRecord.find(record);
  return found == byRecord.end() ? nullptr : found->second;
}

std::uint32_t DeviceLibrary::OpenStream(std::uint32_t connectionId, int* socketOut) {
  std::shared_ptr<MobileDevice> device;
  {
    const std::lock_guard hold(lock);
    for (const auto& [key, candidate] : devices) {
      if (candidate->attached && candidate->connectionId == connectionId) device = candidate;
    }
  }
  if (!device) return kUnknownConnection;
  const std::uint32_t scripted = device->muxAnswers.Next();
  if (scripted != 0) return scripted;
  const SOCKET stream = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (stream == INVALID_SOCKET) return kRefused;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(device->tcpPort);
  if (connect(stream, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    closesocket(stream);
    return kRefused;
  }
  *socketOut = static_cast<int>(stream);
  Outbox::Get().Event("stream " + device->key + " " + std::to_string(*socketOut));
  return 0;
}

}  // namespace corvalint::desk
