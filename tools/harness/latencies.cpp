#include "harness/latencies.h"

#include <algorithm>
#include <cmath>

namespace corvalint::harness {

std::int64_t Percentile(std::vector<std::int64_t> values, double percent) {
  if (values.empty()) return 0;
  const double rank = std::ceil(static_cast<double>(values.size()) * percent / 100.0);
  const auto place =
      static_cast<std::ptrdiff_t>(std::clamp(rank, 1.0, static_cast<double>(values.size())) - 1.0);
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

}  // namespace corvalint::harness
