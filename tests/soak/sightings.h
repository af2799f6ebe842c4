#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace corvalint::soak {

// Waits for certain bytes to come by at some place. Any thread.
class Sightings {
 public:
  using Bytes = std::vector<std::uint8_t>;

  // From now on these bytes are counted, from 0.
  void LookFor(Bytes bytes) {
    const std::lock_guard hold(mutex);
    wanted = std::move(bytes);
    count = 0;
  }
  void Saw(const std::uint8_t* data, std::size_t size) {
    const std::lock_guard hold(mutex);
    if (wanted.empty() || !std::equal(data, data + size, wanted.begin(), wanted.end())) return;
    ++count;
    changed.notify_all();
  }
  // Until they were seen; false when that takes too long.
  bool Wait() {
    std::unique_lock hold(mutex);
    return changed.wait_for(hold, std::chrono::seconds(30), [&] { return count > 0; });
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  Bytes wanted;
  int count = 0;
};

}  // namespace corvalint::soak
