#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "ports/external_midi_manager.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {

// Where MIDI from a device for one endpoint id goes to on the desktop.
struct MidiRoute {
  SourcePort source;  // the device's own published port
  std::vector<MidiDestinationPointer> destinations;
  // Whether the other devices' managers have heard of MIDI for this id on this route. They keep
  // nothing of it, so once is enough.
  bool othersNotified = false;
};

// The routes of one device's MIDI by endpoint id: looked up once, and again after a change of the
// published ports or of the desktop's destinations, or a device's arrival, so that a stream of
// notes takes none of their locks. Shares of what has gone are kept until the device plays again,
// or ends. For the client's own thread.
class MidiRoutes {
 public:
  // `portManager` must outlive the routes.
  explicit MidiRoutes(ExternalMidiManager& portManager) : manager(portManager) {}

  // Valid until the next call.
  MidiRoute& To(std::int32_t id);

 private:
  MidiRoute& Find(std::int32_t id);
  void Forget();

  ExternalMidiManager& manager;
  std::unordered_map<std::int32_t, MidiRoute> routes;
  MidiRoute* latest = nullptr;  // and its id: notes come in runs
  std::int32_t latestId = 0;
  std::uint64_t changesSeen = 0;
};

}  // namespace corvalint
