#include "clients/client_list.h"

#include <algorithm>

#include "clients/route_changes.h"

namespace corvalint {

void ClientList::Append(DeviceClient& client) {
  CriticalSectionScope hold(lock);
  clients.push_back(&client);
  Changed();
  routeChanges.Note();
}

void ClientList::Remove(const DeviceClient& client) {
  CriticalSectionScope hold(lock);
  clients.remove_if([&](const DeviceClient* entry) { return entry == &client; });
  Changed();
}

void ClientList::Changed() { only = clients.size() == 1 ? clients.front() : nullptr; }

bool ClientList::Contains(const DeviceClient& client) const {
  CriticalSectionScope hold(lock);
  return std::find(clients.begin(), clients.end(), &client) != clients.end();
}

std::uint64_t ClientList::Count() const {
  CriticalSectionScope hold(lock);
  return clients.size();
}

ClientWalk::ClientWalk(const ClientList& list) : ClientWalk(list, nullptr) {}

ClientWalk::ClientWalk(const ClientList& list, const std::string& ownerKey)
    : ClientWalk(list, &ownerKey) {}

ClientWalk::ClientWalk(const ClientList& list, const std::string* ownerKey) {
  CriticalSectionScope hold(list.lock);
  if (list.clients.size() > few.size()) many.reserve(list.clients.size());
  for (DeviceClient* client : list.clients) {
    if (ownerKey != nullptr && !client->Owner().MayOwn(*ownerKey)) continue;
    if (client->gate.TryBorrow()) Take(client);
  }
}

ClientWalk::~ClientWalk() {
  for (DeviceClient* client : *this) client->gate.Return();
}

void ClientWalk::Take(DeviceClient* client) {
  if (many.capacity() > few.size()) {
    many.push_back(client);
  } else {
    few[count] = client;
  }
  ++count;
}

}  // namespace corvalint
