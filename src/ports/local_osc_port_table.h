#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/critical_section.h"
#include "ports/local_osc_port.h"

namespace corvalint {

// The loopback OSC ports of one device connection. Its client's own thread works with it, and the
// thread that disconnects the device empties it.
class LocalOSCPortTable {
 public:
  // `owner` must live until the table is destroyed.
  explicit LocalOSCPortTable(LocalOSCPortDelegate& owner);
  // Stops the ports that are left and waits until none of them is inside a call of the owner; never
  // for their threads.
  ~LocalOSCPortTable();
  LocalOSCPortTable(const LocalOSCPortTable&) = delete;
  LocalOSCPortTable& operator=(const LocalOSCPortTable&) = delete;

  // Opens a port. When one of the same destination key or bind key is there, that one loses its
  // fresh flag and nothing else happens. Gives the port that is there afterwards, or null once the
  // table is shut.
  std::shared_ptr<LocalOSCPort> CreatePort(std::int32_t destinationPort, std::int32_t bindPort,
                                           const std::string& host) CORVALINT_EXCLUDES(lock);
  // Removes and stops the port with that destination key; nothing when there is none.
  void RemovePort(std::string_view destinationKey) CORVALINT_EXCLUDES(lock);
  // Removes and stops all ports, the last one first.
  void RemoveAll() CORVALINT_EXCLUDES(lock);
  // From now on no port is created: nobody would stop it.
  void Shut() CORVALINT_EXCLUDES(lock);

  // Null when no port has that destination key.
  std::shared_ptr<LocalOSCPort> Find(std::string_view destinationKey) const
      CORVALINT_EXCLUDES(lock);
  std::size_t Count() const CORVALINT_EXCLUDES(lock);

 private:
  using PortPointer = std::shared_ptr<LocalOSCPort>;

  PortPointer FindLocked(std::string_view destinationKey) const CORVALINT_REQUIRES(lock);
  PortPointer PortInUse(const LocalOSCPort& wanted) const CORVALINT_REQUIRES(lock);
  bool Holds(const PortPointer& port) const CORVALINT_EXCLUDES(lock);

  const std::shared_ptr<LocalOSCPortLink> link;

  // Leaf: ports are started and stopped outside it.
  mutable CriticalSection lock;
  // In the order of their creation. No two have a destination key or a bind key in common.
  std::vector<PortPointer> ports CORVALINT_GUARDED_BY(lock);
  bool shut CORVALINT_GUARDED_BY(lock) = false;
};

}  // namespace corvalint
