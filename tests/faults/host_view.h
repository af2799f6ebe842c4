#pragma once

#include <string>

#include "support/paired_exports.h"

namespace corvalint::faults {

using test::Exports;
using test::kDestinations;
using test::kSources;

// The id of the endpoint of that name, 0 when there is none.
int IdOf(const Exports& side, const std::string& name);
bool IsOn(const Exports& side, const std::string& name);
// Toggle it when it is not as wanted.
void SwitchOn(const Exports& side, const std::string& name);
void SwitchOff(const Exports& side, const std::string& name);

}  // namespace corvalint::faults
