#pragma once

#include "clients/route_changes.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint::test {

// Takes what a test has listed out of the process's own registry, which every test finds empty.
inline void ClearDesktop() {
  MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
  CriticalSectionScope hold(registry.listLock);
  registry.sources.clear();
  registry.destinations.clear();
  routeChanges.Note();
}

}  // namespace corvalint::test
