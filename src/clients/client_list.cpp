#include "clients/client_list.h"

#include <algorithm>

namespace corvalint {

void ClientList::Append(DeviceClient& client) {
  CriticalSectionScope hold(lock);
  clients.push_back(&client);
  Changed();
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

ClientWalk::ClientWalk(const ClientList& list) {
  CriticalSectionScope hold(list.lock);
  MakeRoom(list.clients.size());
  for (DeviceClient* client : list.clients) {
    if (client->gate.TryBorrow()) Take(client);
  }
}

ClientWalk::ClientWalk(const ClientList& list, const std::string& ownerKey) {
  CriticalSectionScope hold(list.lock);
  MakeRoom(list.clients.size());
  for (DeviceClient* client : list.clients) {
    if (client->Owner().MayOwn(ownerKey) && client->gate.TryBorrow()) Take(client);
  }
}

void ClientWalk::MakeRoom(std::size_t clients) {
  if (clients > few.size()) many.reserve(clients);
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
