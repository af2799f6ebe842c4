#include "winmidi/midi_endpoint_registry.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "clients/route_changes.h"
#include "service/console.h"
#include "service/immortal.h"
#include "winmidi/midi_destination.h"
#include "winmidi/midi_source.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kLockSpinCount = 1024;

template <class List>
auto At(const List& list, std::int32_t position) {
  if (position < 0 || static_cast<std::size_t>(position) >= list.size()) {
    throw std::out_of_range("invalid vector<T> subscript");
  }
  return list[static_cast<std::size_t>(position)];
}

// Ids can repeat in theory; the first match wins.
template <class List>
typename List::value_type WithId(const List& list, std::int32_t id) {
  for (const auto& endpoint : list) {
    if (endpoint->uniqueId == id) return endpoint;
  }
  return nullptr;
}

// `vanished` has room for all of them.
template <class List>
void MoveVanished(List& list, List& vanished) {
  for (auto i = list.size(); i-- > 0;) {
    if (list[i]->found) continue;
    vanished.push_back(list[i]);
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

// Devices come and go between scans, and winmm's numbers move with them. When their count has
// changed, a number is trusted only if the device there still has the endpoint's name.
bool SourceIsWhereItWas(const MidiEndpoint& source, std::uint32_t inputsAtScan) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  if (winmm.midiInGetNumDevs() == inputsAtScan) return true;
  MidiInCaps caps{};
  return winmm.midiInGetDevCapsA(source.deviceIndex, &caps, sizeof caps) == kMidiNoError &&
         source.name == TextOf(caps.name);
}

bool DestinationIsWhereItWas(const MidiEndpoint& destination, std::uint32_t outputsAtScan) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  if (winmm.midiOutGetNumDevs() == outputsAtScan) return true;
  MidiOutCaps caps{};
  return winmm.midiOutGetDevCapsA(destination.deviceIndex, &caps, sizeof caps) == kMidiNoError &&
         destination.name == TextOf(caps.name);
}

}  // namespace

MidiEndpointRegistry::MidiEndpointRegistry() : bufferQueueLock(kLockSpinCount) {
  if (!bufferQueueLock.Initialised()) ConsolePrint("could not create _mutex\n");
}

std::vector<MidiSourcePointer> MidiEndpointRegistry::Sources() const {
  CriticalSectionScope hold(listLock);
  return sources;
}

std::vector<MidiDestinationPointer> MidiEndpointRegistry::Destinations() const {
  CriticalSectionScope hold(listLock);
  return destinations;
}

std::int64_t MidiEndpointRegistry::SourceCount() const {
  CriticalSectionScope hold(listLock);
  return static_cast<std::int64_t>(sources.size());
}

std::int64_t MidiEndpointRegistry::DestinationCount() const {
  CriticalSectionScope hold(listLock);
  return static_cast<std::int64_t>(destinations.size());
}

MidiSourcePointer MidiEndpointRegistry::SourceAt(std::int32_t position) const {
  CriticalSectionScope hold(listLock);
  return At(sources, position);
}

MidiDestinationPointer MidiEndpointRegistry::DestinationAt(std::int32_t position) const {
  CriticalSectionScope hold(listLock);
  return At(destinations, position);
}

MidiSourcePointer MidiEndpointRegistry::SourceWithId(std::int32_t id) const {
  CriticalSectionScope hold(listLock);
  return WithId(sources, id);
}

MidiDestinationPointer MidiEndpointRegistry::DestinationWithId(std::int32_t id) const {
  CriticalSectionScope hold(listLock);
  return WithId(destinations, id);
}

std::vector<MidiDestinationPointer> MidiEndpointRegistry::DestinationsWithId(
    std::int32_t id) const {
  std::vector<MidiDestinationPointer> matches;
  CriticalSectionScope hold(listLock);
  for (const auto& destination : destinations) {
    if (destination->uniqueId == id) matches.push_back(destination);
  }
  return matches;
}

// The flag is turned before the device is tried: an open that fails leaves the endpoint off, and
// the next toggle tries again.
void MidiEndpointRegistry::ToggleSource(std::int32_t id) {
  CriticalSectionScope hold(deviceLock);
  const MidiSourcePointer source = SourceWithId(id);
  if (source == nullptr) return;
  source->off = !source->off;
  if (source->off) {
    CloseMidiSource(*this, source, true);
  } else if (SourceIsWhereItWas(*source, inputsAtScan)) {
    OpenMidiSource(*this, source);
  } else {
    source->MarkUnavailable();
  }
}

void MidiEndpointRegistry::ToggleDestination(std::int32_t id) {
  CriticalSectionScope hold(deviceLock);
  const MidiDestinationPointer destination = DestinationWithId(id);
  if (destination == nullptr) return;
  destination->off = !destination->off;
  if (destination->off) {
    CloseMidiDestination(*destination);
    if (MidiDelegate* receiver = delegate) receiver->DestinationRemoved(*destination);
  } else if (DestinationIsWhereItWas(*destination, outputsAtScan)) {
    OpenMidiDestination(*this, *destination);
  } else {
    destination->MarkUnavailable();
  }
}

void MidiEndpointRegistry::Append(MidiSourcePointer source) {
  sources.push_back(std::move(source));
}

void MidiEndpointRegistry::Append(MidiDestinationPointer destination) {
  destinations.push_back(std::move(destination));
  routeChanges.Note();
}

void MidiEndpointRegistry::TakeVanished(std::vector<MidiDestinationPointer>& lostDestinations,
                                        std::vector<MidiSourcePointer>& lostSources) {
  lostDestinations.reserve(destinations.size());
  lostSources.reserve(sources.size());
  MoveVanished(destinations, lostDestinations);
  if (!lostDestinations.empty()) routeChanges.Note();
  MoveVanished(sources, lostSources);
}

void MidiEndpointRegistry::KeepForever(std::unique_ptr<MidiInputBuffers> buffers) noexcept {
  CriticalSectionScope hold(listLock);
  buffers->keptBefore = std::move(kept);
  kept = std::move(buffers);
}

MidiEndpointRegistry& GetMidiEndpointRegistry() {
  static Immortal<MidiEndpointRegistry> registry;
  return registry.Get();
}

void AnnounceOpenEndpoints(MidiEndpointRegistry& registry) {
  MidiDelegate* const receiver = registry.delegate;
  if (receiver == nullptr) return;
  for (const auto& destination : registry.Destinations()) {
    if (destination->IsOpen()) receiver->DestinationAdded(*destination);
  }
  for (const auto& source : registry.Sources()) {
    if (source->IsOpen()) receiver->SourceAdded(*source);
  }
}

}  // namespace corvalint
