#include "protocol/midi_routes.h"

#include "clients/route_changes.h"

namespace corvalint {

namespace {

// More endpoints than any device has; one that makes ids up all the time takes no more memory.
constexpr std::size_t kMostRoutes = 256;

}  // namespace

// The count is read before the tables: a change in between makes the next message look again.
MidiRoute& MidiRoutes::To(std::int32_t id) {
  const std::uint64_t changes = routeChanges.Count();
  if (changes != changesSeen) {
    Forget();
    changesSeen = changes;
  }
  if (latest == nullptr || latestId != id) {
    latest = &Find(id);
    latestId = id;
  }
  return *latest;
}

MidiRoute& MidiRoutes::Find(std::int32_t id) {
  const auto known = routes.find(id);
  if (known != routes.end()) return known->second;
  if (routes.size() >= kMostRoutes) Forget();
  MidiRoute route;
  route.source = manager.SourcePortWithId(static_cast<std::uint32_t>(id));
  route.destinations = GetMidiEndpointRegistry().DestinationsWithId(id);
  return routes.emplace(id, std::move(route)).first->second;
}

void MidiRoutes::Forget() {
  latest = nullptr;
  routes.clear();
}

}  // namespace corvalint
