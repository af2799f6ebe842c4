#pragma once

#include <cstddef>
#include <cstdint>

namespace corvalint::device {

// Lets through so many bytes per millisecond, and what at most a millisecond saved up. For one
// thread at a time. Times are those of RawNow().
class RateLimiter {
 public:
  // 0 = unlimited.
  void SetRate(std::size_t bytesPerMillisecond, std::int64_t now);
  bool Limited() const { return rate > 0; }

  // Bytes that may pass now (the largest size_t when unlimited).
  std::size_t Allowed(std::int64_t now);
  // Notes that bytes have passed.
  void Take(std::size_t bytes);

 private:
  std::size_t rate = 0;
  std::size_t saved = 0;   // bytes
  std::int64_t since = 0;  // up to when `saved` has been filled
};

}  // namespace corvalint::device
