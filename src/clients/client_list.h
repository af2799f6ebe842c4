#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "clients/device_client.h"
#include "platform/critical_section.h"

namespace corvalint {

// The clients of the connected devices, oldest first. Senders walk a ClientWalk of it. The list's
// own lock is a leaf: it is held for one change or one copy, so a device can arrive while a sender
// holds `clientLock`. Any thread.
class ClientList {
 public:
  void Append(DeviceClient& client) CORVALINT_EXCLUDES(lock);
  // Removes every entry of that client.
  void Remove(const DeviceClient& client) CORVALINT_EXCLUDES(lock);
  bool Contains(const DeviceClient& client) const CORVALINT_EXCLUDES(lock);
  // Whether that client is the only one. Takes no lock.
  bool HasOnly(const DeviceClient& client) const { return only == &client; }
  std::uint64_t Count() const CORVALINT_EXCLUDES(lock);

 private:
  friend class ClientWalk;

  void Changed() CORVALINT_REQUIRES(lock);

  mutable CriticalSection lock;
  std::list<DeviceClient*> clients CORVALINT_GUARDED_BY(lock);
  // Null unless there is exactly one; written under the lock.
  std::atomic<const DeviceClient*> only{nullptr};
};

// The clients that were in the list when the walk began, in list order, each borrowed until the
// walk ends. Clients that are about to end are left out. Allocates nothing for up to 64 devices.
class ClientWalk {
 public:
  explicit ClientWalk(const ClientList& list);
  // Only over those whose manager may own an endpoint of that key.
  ClientWalk(const ClientList& list, const std::string& ownerKey);
  ~ClientWalk();
  ClientWalk(const ClientWalk&) = delete;
  ClientWalk& operator=(const ClientWalk&) = delete;

  DeviceClient* const* begin() const { return First(); }
  DeviceClient* const* end() const { return First() + count; }

 private:
  ClientWalk(const ClientList& list, const std::string* ownerKey);  // null: over all
  void Take(DeviceClient* client);
  DeviceClient* const* First() const { return many.empty() ? few.data() : many.data(); }

  std::array<DeviceClient*, 64> few;  // the first `count` are set
  std::vector<DeviceClient*> many;    // all of them, once `few` is too small
  std::size_t count = 0;
};

}  // namespace corvalint
