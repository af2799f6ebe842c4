#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "corvalint_wrapper.h"
#include "service/console.h"
#include "service/log.h"
#include "winmidi/midi_endpoint_registry.h"

// The exported functions of the desktop's MIDI endpoints: a lookup each, and one value of what it
// finds. A null endpoint is an unknown id.

namespace {

using corvalint::GetMidiEndpointRegistry;
using corvalint::MidiEndpoint;
using EndpointPointer = std::shared_ptr<MidiEndpoint>;

EndpointPointer Source(int id) { return GetMidiEndpointRegistry().SourceWithId(id); }
EndpointPointer Destination(int id) { return GetMidiEndpointRegistry().DestinationWithId(id); }

unsigned int NameLength(const EndpointPointer& endpoint) {
  return endpoint == nullptr ? 0 : static_cast<unsigned int>(endpoint->name.size());
}

char NameByte(const EndpointPointer& endpoint, int position) {
  if (endpoint == nullptr) return 0;
  if (position < 0 || static_cast<std::size_t>(position) >= endpoint->name.size()) {
    throw std::out_of_range("invalid string position");
  }
  return endpoint->name[static_cast<std::size_t>(position)];
}

corvalint_bool IsOn(const EndpointPointer& endpoint) {
  if (endpoint == nullptr) return 0;
  const bool on = !endpoint->off;
  corvalint::ConsolePrint(on ? "true" : "false");
  return on ? 1 : 0;
}

corvalint_bool IsAvailable(const EndpointPointer& endpoint) {
  return endpoint != nullptr && endpoint->available ? 1 : 0;
}

// What goes wrong inside a toggle is no business of the host's.
template <class Toggle>
void Contain(Toggle toggle) {
  try {
    toggle();
  } catch (const std::exception& failure) {
    corvalint::LogError("endpoint not switched: %s", failure.what());
  }
}

}  // namespace

corvalint_int64 corvalintServerGetCountOfSources(void) {
  return GetMidiEndpointRegistry().SourceCount();
}

corvalint_int64 corvalintServerGetCountOfDestinations(void) {
  return GetMidiEndpointRegistry().DestinationCount();
}

int get_unique_id_source(int position) {
  return GetMidiEndpointRegistry().SourceAt(position)->uniqueId;
}

int get_unique_id_destination(int position) {
  return GetMidiEndpointRegistry().DestinationAt(position)->uniqueId;
}

unsigned int get_source_name_length(int id) { return NameLength(Source(id)); }

unsigned int get_dest_name_length(int id) { return NameLength(Destination(id)); }

char corvalintServerGetActiveMIDISourceName(int id, int position) {
  return NameByte(Source(id), position);
}

char corvalintServerGetActiveMIDIDestName(int id, int position) {
  return NameByte(Destination(id), position);
}

void set_source_status(unsigned int id) {
  Contain([id] { GetMidiEndpointRegistry().ToggleSource(static_cast<int>(id)); });
}

void set_destination_status(unsigned int id) {
  Contain([id] { GetMidiEndpointRegistry().ToggleDestination(static_cast<int>(id)); });
}

corvalint_bool get_source_status(int id) { return IsOn(Source(id)); }

corvalint_bool get_destination_status(int id) { return IsOn(Destination(id)); }

corvalint_bool get_source_available(int id) { return IsAvailable(Source(id)); }

corvalint_bool get_destination_available(int id) { return IsAvailable(Destination(id)); }
