#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <limits>
#include <mutex>

#include "device/song.h"

namespace corvalint::device {

struct PlayOptions {
  bool fast = false;  // as fast as it goes instead of the song's own tempo
  double seconds = std::numeric_limits<double>::infinity();  // only so much of the song's start
};

// Plays a song through a callback. Play() runs on its caller's thread; Stop() may be called on any
// other one.
class Player {
 public:
  // Called for each event with its index in the song; false ends the playing.
  using Callback = std::function<bool(const SongEvent& event, std::size_t index)>;

  // Calls back for every event due within the options' seconds of the song, in order, and gives the
  // number of calls made. An event is never early; when the callback is late, what follows catches
  // up.
  std::size_t Play(const Song& song, const PlayOptions& options, const Callback& callback);

  // Ends a Play() in progress before its next event. One called later ends at once too.
  void Stop();

 private:
  bool WaitUntil(std::chrono::steady_clock::time_point when);

  std::mutex mutex;
  std::condition_variable stopChanged;
  bool stopped = false;
};

}  // namespace corvalint::device
