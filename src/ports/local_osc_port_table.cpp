#include "ports/local_osc_port_table.h"

#include <algorithm>

#include "platform/clock.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kDrainPollMilliseconds = 10;

}  // namespace

LocalOSCPortTable::LocalOSCPortTable(LocalOSCPortDelegate& owner)
    : link(std::make_shared<LocalOSCPortLink>(owner)) {}

LocalOSCPortTable::~LocalOSCPortTable() {
  Shut();
  RemoveAll();
  link->gate.Close();
  while (!link->gate.Drained()) Use<ClockApi>().sleep(kDrainPollMilliseconds);
}

std::shared_ptr<LocalOSCPort> LocalOSCPortTable::CreatePort(std::int32_t destinationPort,
                                                            std::int32_t bindPort,
                                                            const std::string& host) {
  auto port = std::make_shared<LocalOSCPort>(bindPort, destinationPort, host, link);
  {
    CriticalSectionScope hold(lock);
    if (PortPointer known = PortInUse(*port)) {
      known->fresh = false;
      return known;
    }
    if (shut) return nullptr;
    ports.push_back(port);
  }
  LocalOSCPort::Launch(port);
  // Whoever emptied the table meanwhile may have stopped a port that had not begun to run.
  if (!Holds(port)) port->Stop();
  return port;
}

void LocalOSCPortTable::RemovePort(std::string_view destinationKey) {
  PortPointer port;
  {
    CriticalSectionScope hold(lock);
    port = FindLocked(destinationKey);
    if (port == nullptr) return;
    ports.erase(std::find(ports.begin(), ports.end(), port));
  }
  port->Stop();
}

void LocalOSCPortTable::RemoveAll() {
  for (;;) {
    PortPointer last;
    {
      CriticalSectionScope hold(lock);
      if (ports.empty()) return;
      last = ports.back();
      ports.pop_back();
    }
    last->Stop();
  }
}

void LocalOSCPortTable::Shut() {
  CriticalSectionScope hold(lock);
  shut = true;
}

std::shared_ptr<LocalOSCPort> LocalOSCPortTable::Find(std::string_view destinationKey) const {
  CriticalSectionScope hold(lock);
  return FindLocked(destinationKey);
}

std::size_t LocalOSCPortTable::Count() const {
  CriticalSectionScope hold(lock);
  return ports.size();
}

LocalOSCPortTable::PortPointer LocalOSCPortTable::FindLocked(
    std::string_view destinationKey) const {
  for (const PortPointer& port : ports) {
    if (port->DestinationKey() == destinationKey) return port;
  }
  return nullptr;
}

// The destination key is looked at first: the two keys can belong to two ports.
LocalOSCPortTable::PortPointer LocalOSCPortTable::PortInUse(const LocalOSCPort& wanted) const {
  if (PortPointer known = FindLocked(wanted.DestinationKey())) return known;
  for (const PortPointer& port : ports) {
    if (port->BindKey() == wanted.BindKey()) return port;
  }
  return nullptr;
}

bool LocalOSCPortTable::Holds(const PortPointer& port) const {
  CriticalSectionScope hold(lock);
  return std::find(ports.begin(), ports.end(), port) != ports.end();
}

}  // namespace corvalint
