#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "worker.h"

namespace corvalint::desk {

// The library's device record as its users see it: an opaque block with one word that is non-zero
// for a usable device.
struct DeviceRecord {
  std::uint8_t opaque[24] = {};
  std::uint64_t productWord = 1;
  std::uint8_t rest[96] = {};
};
static_assert(offsetof(DeviceRecord, productWord) == 24);

// The record handed to notification callbacks.
struct NotificationRecord {
  DeviceRecord* device = nullptr;
  std::uint32_t kind = 0;
};
static_assert(offsetof(NotificationRecord, kind) == 8);

// Answers of one function for one device: each is given once, the last for ever.
class AnswerScript {
 public:
  void Set(std::vector<std::uint32_t> list);
  std::uint32_t Next();

 private:
  std::mutex lock;
  std::vector<std::uint32_t> answers;
  std::size_t position = 0;
};

// One device that a test has laid out. Records are never freed: a late caller meets a device that
// is gone instead of freed memory.
struct MobileDevice {
  std::string key;  // the test's name for it
  std::optional<std::string> identifier;
  std::optional<std::string> displayName;
  std::atomic<std::uint32_t> connectionId = 0;
  std::atomic<std::uint16_t> tcpPort = 0;
  std::atomic<bool> attached = false;
  bool announced = false;  // what the notifier's thread has told
  AnswerScript connectAnswers;
  AnswerScript muxAnswers;
  DeviceRecord* record = nullptr;
};

using NotificationCallback = void (*)(NotificationRecord*, void*);
using RestoreCallback = void (*)(void*, void*);

// The device library's state. Callbacks are delivered one at a time on one thread of its own. All
// operations may be called from any thread.
class DeviceLibrary {
 public:
  static DeviceLibrary& Get();

  // Test side. Commands about unknown devices throw std::runtime_error.
  std::shared_ptr<MobileDevice> Device(const std::string& key, bool make);
  void Attach(const std::string& key, bool freshRecord);
  void Detach(const std::string& key);
  void Notify(const std::string& key, std::uint32_t kind);  // "null": without a device
  void Restore(const std::string& which);                   // dfu-connect, recovery-disconnect, ...

  // Library side.
  std::uintptr_t Subscribe(NotificationCallback callback, void* context);
  bool Unsubscribe(std::uintptr_t subscription);
  void RegisterRestore(const RestoreCallback (&callbacks)[4], void* context);
  std::shared_ptr<MobileDevice> Find(const void* record);
  std::uint32_t OpenStream(std::uint32_t connectionId, int* socketOut);

 private:
  struct Subscription {
    std::uintptr_t id = 0;
    NotificationCallback callback = nullptr;
    void* context = nullptr;
    bool active = false;  // once present devices are being announced to it
  };

  void Deliver(const std::shared_ptr<MobileDevice>& device, std::uint32_t kind);
  void AnnouncePresent(std::uintptr_t subscription);

  std::mutex lock;
  std::map<std::string, std::shared_ptr<MobileDevice>> devices;
  std::map<const void*, std::shared_ptr<MobileDevice>> byRecord;
  std::vector<Subscription> subscriptions;
  std::uintptr_t lastSubscription = 0x5000;
  RestoreCallback restoreCallbacks[4] = {};
  void* restoreContext = nullptr;
  Worker notifier;
};

}  // namespace corvalint::desk
