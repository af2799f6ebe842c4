#pragma once

#include <optional>
#include <string>

#include "corvalint_wrapper.h"

namespace corvalint::soak {

// Sources and destinations answer alike, each from its own list.
struct Exports {
  corvalint_int64 (*count)();
  int (*idAt)(int);
  unsigned int (*nameLength)(int);
  char (*nameByte)(int, int);
  void (*toggle)(unsigned int);
  corvalint_bool (*status)(int);
  corvalint_bool (*available)(int);
};

inline constexpr Exports kSources{corvalintServerGetCountOfSources,
                                  get_unique_id_source,
                                  get_source_name_length,
                                  corvalintServerGetActiveMIDISourceName,
                                  set_source_status,
                                  get_source_status,
                                  get_source_available};
inline constexpr Exports kDestinations{corvalintServerGetCountOfDestinations,
                                       get_unique_id_destination,
                                       get_dest_name_length,
                                       corvalintServerGetActiveMIDIDestName,
                                       set_destination_status,
                                       get_destination_status,
                                       get_destination_available};

// The name as the host reads it: empty for an id that is not there, and with zeroes at its end when
// the endpoint goes in the middle. Throws std::out_of_range when another one has taken the id
// since.
std::string NameOf(const Exports& exports, int id);

// The id of the endpoint of that name, once a scan has found it and nothing else; complains when it
// does not come.
std::optional<int> WaitForOnly(const Exports& exports, const std::string& name);

// Complains when the endpoint cannot be switched.
void SwitchOn(const Exports& exports, int id);
void SwitchOff(const Exports& exports, int id);

}  // namespace corvalint::soak
