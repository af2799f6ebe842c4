#pragma once

#include <string>

#include "corvalint_wrapper.h"

namespace corvalint::faults {

// One side of the desktop's endpoints as the host sees it, through the exported functions.
struct HostSide {
  corvalint_int64 (*count)();
  int (*idAt)(int);
  unsigned int (*nameLength)(int);
  char (*nameByte)(int, int);
  void (*toggle)(unsigned int);
  corvalint_bool (*isOn)(int);
};
extern const HostSide kSources, kDestinations;

// The id of the endpoint of that name, 0 when there is none.
int IdOf(const HostSide& side, const std::string& name);
bool IsOn(const HostSide& side, const std::string& name);
// Toggle it when it is not as wanted.
void SwitchOn(const HostSide& side, const std::string& name);
void SwitchOff(const HostSide& side, const std::string& name);

}  // namespace corvalint::faults
