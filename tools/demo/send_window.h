#pragma once

#include <chrono>
#include <cstddef>

namespace corvalint::demo {

// Keeps a sender of datagrams from outrunning their receiver: nothing else would slow it down, and
// what finds the receiver's buffer full is lost. A value for one thread.
class SendWindow {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr std::size_t kMostUnderWay = 64;
  // So long nothing arrives, and what was under way counts as lost.
  static constexpr std::chrono::seconds kPatience{1};

  // Whether another message may be sent after `sent`, of which `received` have arrived.
  bool HasRoom(std::size_t sent, std::size_t received, Time now);

 private:
  std::size_t settled = 0;  // of the sent ones: arrived or given up
  std::size_t receivedBefore = 0;
  Time lastProgress;
};

}  // namespace corvalint::demo
