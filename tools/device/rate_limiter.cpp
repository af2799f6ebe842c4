#include "device/rate_limiter.h"

#include <algorithm>
#include <limits>

namespace corvalint::device {
namespace {
constexpr std::int64_t kMillisecond = 1'000'000;
}

void RateLimiter::SetRate(std::size_t bytesPerMillisecond, std::int64_t now) {
  rate = bytesPerMillisecond;
  saved = rate;
  since = now;
}

std::size_t RateLimiter::Allowed(std::int64_t now) {
  if (!Limited()) return std::numeric_limits<std::size_t>::max();
  // Whole milliseconds only, so that no rounding adds up to a wrong rate.
  const std::int64_t passed = (now - since) / kMillisecond;
  if (passed > 0) {
    saved = rate;
    since += passed * kMillisecond;
  }
  return saved;
}

void RateLimiter::Take(std::size_t bytes) {
  if (Limited()) saved -= std::min(saved, bytes);
}

}  // namespace corvalint::device
