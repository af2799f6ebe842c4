#pragma once

#include "corvalint_wrapper.h"

namespace corvalint::test {

// The exported functions of a list. Sources and destinations answer alike, each from its own list;
// a test of both runs with each.
struct Exports {
  const char* kind;
  corvalint_int64 (*count)();
  int (*idAt)(int);
  unsigned int (*nameLength)(int);
  char (*nameByte)(int, int);
  void (*toggle)(unsigned int);
  corvalint_bool (*status)(int);
  corvalint_bool (*available)(int);
};

inline constexpr Exports kSources = {"source",
                                     corvalintServerGetCountOfSources,
                                     get_unique_id_source,
                                     get_source_name_length,
                                     corvalintServerGetActiveMIDISourceName,
                                     set_source_status,
                                     get_source_status,
                                     get_source_available};
inline constexpr Exports kDestinations = {"destination",
                                          corvalintServerGetCountOfDestinations,
                                          get_unique_id_destination,
                                          get_dest_name_length,
                                          corvalintServerGetActiveMIDIDestName,
                                          set_destination_status,
                                          get_destination_status,
                                          get_destination_available};

}  // namespace corvalint::test
