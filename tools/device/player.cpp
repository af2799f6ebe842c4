#include "device/player.h"

#include <chrono>

namespace corvalint::device {

std::size_t Player::Play(const Song& song, const PlayOptions& options, const Callback& callback) {
  const auto start = std::chrono::steady_clock::now();
  std::size_t played = 0;
  for (const SongEvent& event : song.events) {
    if (static_cast<double>(event.time) > options.seconds * 1e6) break;
    const auto due = options.fast ? start : start + std::chrono::microseconds(event.time);
    if (!WaitUntil(due)) break;
    const std::size_t index = played++;
    if (!callback(event, index)) break;
  }
  return played;
}

void Player::Stop() {
  {
    const std::lock_guard lock(mutex);
    stopped = true;
  }
  stopChanged.notify_all();
}

// False when the playing has been stopped.
bool Player::WaitUntil(std::chrono::steady_clock::time_point when) {
  std::unique_lock lock(mutex);
  return !stopChanged.wait_until(lock, when, [this] { return stopped; });
}

}  // namespace corvalint::device
