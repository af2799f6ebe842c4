// A view of corvalint_wrapper.h for hosts in C++17: lists as vectors, endpoints that are on as
// objects. One file; copy it into your program.
//
// What holds for the functions holds here: Sources() and Destinations() never wait for a device,
// reading `on` makes the library print, SwitchedOn waits for the driver. Any thread.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "corvalint_wrapper.h"

namespace corvalint_view {

// Starts the service once, however often it is called. There is no stop.
inline void Start() {
  static const bool started = (corvalintServerStart(), true);
  static_cast<void>(started);
}

// The functions that exist once for sources and once for destinations.
struct Side {
  corvalint_int64 (*count)(void);
  int (*idAt)(int position);
  unsigned int (*nameLength)(int id);
  char (*nameByte)(int id, int position);
  void (*toggle)(unsigned int id);
  corvalint_bool (*isOn)(int id);
  corvalint_bool (*isAvailable)(int id);
};

inline const Side& SourceSide() {
  static const Side side{corvalintServerGetCountOfSources,
                         get_unique_id_source,
                         get_source_name_length,
                         corvalintServerGetActiveMIDISourceName,
                         set_source_status,
                         get_source_status,
                         get_source_available};
  return side;
}

inline const Side& DestinationSide() {
  static const Side side{corvalintServerGetCountOfDestinations,
                         get_unique_id_destination,
                         get_dest_name_length,
                         corvalintServerGetActiveMIDIDestName,
                         set_destination_status,
                         get_destination_status,
                         get_destination_available};
  return side;
}

// An endpoint as it was when it was read. The name is in the ANSI code page.
struct Endpoint {
  int id = 0;
  std::string name;
  bool available = false;
};

// The ids alone, in list order. A scan may take any number of endpoints out meanwhile, which shifts
// the others towards the first position. So the walk goes there from the last one and misses none,
// and it asks for the count again right before each position, which may have left the list.
inline std::vector<int> Ids(const Side& side) {
  std::vector<int> ids;
  for (corvalint_int64 position = side.count(); position-- > 0;) {
    if (position >= side.count()) continue;
    const int id = side.idAt(static_cast<int>(position));
    if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
  }
  std::reverse(ids.begin(), ids.end());
  return ids;
}

inline std::string Name(const Side& side, int id) {
  std::string name(side.nameLength(id), '\0');
  for (std::size_t at = 0; at < name.size(); ++at) {
    name[at] = side.nameByte(id, static_cast<int>(at));
  }
  return name;
}

inline std::vector<Endpoint> Endpoints(const Side& side) {
  std::vector<Endpoint> endpoints;
  for (const int id : Ids(side)) {
    endpoints.push_back({id, Name(side, id), side.isAvailable(id) != 0});
  }
  return endpoints;
}

inline std::vector<Endpoint> Sources() { return Endpoints(SourceSide()); }
inline std::vector<Endpoint> Destinations() { return Endpoints(DestinationSide()); }

// An endpoint that is on for as long as this object lives. Switched by one owner only: the
// functions toggle, so two owners would undo each other.
class SwitchedOn {
 public:
  // Throws std::runtime_error if the device cannot be opened or has gone.
  SwitchedOn(const Side& itsSide, int itsId) : side(&itsSide), id(itsId) {
    if (!side->isOn(id)) side->toggle(static_cast<unsigned int>(id));
    if (!side->isOn(id)) throw std::runtime_error("the MIDI device cannot be opened");
  }
  ~SwitchedOn() { Off(); }
  SwitchedOn(SwitchedOn&& other) noexcept
      : side(std::exchange(other.side, nullptr)), id(other.id) {}
  SwitchedOn& operator=(SwitchedOn&& other) noexcept {
    std::swap(side, other.side);
    std::swap(id, other.id);
    return *this;
  }
  SwitchedOn(const SwitchedOn&) = delete;
  SwitchedOn& operator=(const SwitchedOn&) = delete;

 private:
  // A device that has gone is off already, and its id unknown.
  void Off() {
    if (side != nullptr && side->isOn(id)) side->toggle(static_cast<unsigned int>(id));
  }

  const Side* side;
  int id;
};

}  // namespace corvalint_view
