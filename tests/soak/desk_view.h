#pragma once

#include <optional>
#include <string>

#include "unit/support/paired_exports.h"

namespace corvalint::soak {

using test::Exports;
using test::kDestinations;
using test::kSources;

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
