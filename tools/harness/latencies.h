#pragma once

#include <cstdint>
#include <vector>

namespace corvalint::harness {

// The value that `percent` of the values do not exceed; 0 if there are none.
std::int64_t Percentile(std::vector<std::int64_t> values, double percent);

}  // namespace corvalint::harness
