#pragma once

#include <atomic>
#include <cstdint>

namespace corvalint {

// Counts the changes of what MIDI from a device can be sent to: published ports, desktop
// destinations, and new devices. Whoever changes one of the tables counts on after the change, and
// whoever remembers what it found there looks it up again once the count has moved. Any thread.
class RouteChanges {
 public:
  void Note() { count.fetch_add(1, std::memory_order_release); }
  std::uint64_t Count() const { return count.load(std::memory_order_acquire); }

 private:
  std::atomic<std::uint64_t> count{0};
};

inline RouteChanges routeChanges;

}  // namespace corvalint
