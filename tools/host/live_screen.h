#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "host/endpoints.h"

namespace corvalint::host {

// How many of something there were in each of the last seconds.
class SecondHistory {
 public:
  static constexpr std::size_t kSeconds = 60;

  // `second` is a time in whole seconds; a clock that was set back begins the history again.
  void Add(std::int64_t second, std::size_t count);

  // The last 60 seconds up to and including `now`, oldest first; those before the first are 0.
  std::vector<std::size_t> PerSecond(std::int64_t now) const;

 private:
  struct Second {
    std::int64_t second;
    std::size_t count;
  };
  std::deque<Second> seconds;
};

// The MIDI messages at one published port.
struct PortRate {
  std::string name;
  bool counted = true;                 // false: its input cannot be opened
  std::vector<std::size_t> perSecond;  // the last second that is over stands last
};

// What the screen of `watch` shows at one moment. All texts are UTF-8.
struct LiveState {
  std::string time;
  Listing listing;
  unsigned int devices = 0;
  std::vector<std::string> identifiers;  // of devices, as far as they are known
  std::vector<std::string> announced;    // endpoints of apps
  std::vector<PortRate> ports;
  std::vector<std::size_t> changes;  // for each second, the latest last
};

// The screen's lines: at most `rows`, none wider than `columns`. What does not fit is counted in
// the last line.
std::vector<std::string> RenderLive(const LiveState& state, int columns, int rows);

// The last `columns` of the values, each as a block between an eighth and the whole of the line's
// height, 0 as a blank. The highest value has the whole height.
std::string Sparkline(const std::vector<std::size_t>& values, std::size_t columns);

// Columns that a terminal needs for the text: two for a wide character of East Asia, none for what
// combines with the one before.
int DisplayWidth(std::string_view text);

// The text, cut with "~" at its end if it is wider than `columns`.
std::string CutToWidth(std::string_view text, int columns);

}  // namespace corvalint::host
