#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/endpoints.h"
#include "host/live_screen.h"
#include "host/wrapper.h"

namespace corvalint::host {

// Something to tell about one port, once.
struct PortNews {
  std::string name;
  std::int64_t second = 0;     // in which the messages came, or the port could not be opened
  std::uint64_t messages = 0;  // more than 0 unless it could not be opened
  std::uint32_t refused = 0;   // why it could not be opened, a result of winmm; 0 if it could
};

// Counts the MIDI messages that arrive at the published ports of apps. These are the inputs that
// the bridge's own lists lack: it never lists a port of its own, and all others it does list. An
// input that has just been plugged in lacks there as well, until the next scan finds it, so an
// input is opened only when it was missing for longer than a scan takes to come. One thread; what
// is open is closed with the object.
class PortCounts {
 public:
  // Between looks some tenths of a second pass.
  static constexpr int kLooksPerList = 5;   // the desktop's inputs are listed at each fifth look
  static constexpr int kListsToSettle = 7;  // an input is opened when it was missing so often

  // The system outlives the object.
  explicit PortCounts(const System& hostSystem) : system(hostSystem) {}

  // Takes in what came since the last look, and opens and closes inputs. `sources` are those that
  // the bridge lists now, `second` is the time in whole seconds.
  void Look(const std::vector<Endpoint>& sources, std::int64_t second);

  // What was found since this was last asked: each second that is over and had messages, and each
  // port that could not be opened. With `toTheEnd` the running second counts as over.
  std::vector<PortNews> TakeNews(bool toTheEnd = false);

  // The rows for a screen: each port that is open, or could not be opened.
  std::vector<PortRate> Rates(std::int64_t second) const;

 private:
  // Inputs of one name count together, since winmm tells no more of them than that.
  struct Port {
    std::string name;
    std::size_t inputs = 0;  // how many bear the name
    int listed = 0;          // how often it was found missing in the bridge's lists
    std::vector<std::unique_ptr<InputEar>> ears;
    std::uint32_t refused = 0;
    std::uint64_t heard = 0;  // by the ears since they were opened
    std::int64_t second = 0;  // the running one, and what came in it
    std::uint64_t inSecond = 0;
    SecondHistory history;
  };

  void ReadList(const std::vector<Endpoint>& sources, std::int64_t second);
  void Open(Port& port, const std::vector<std::size_t>& numbers, const MidiInput& input,
            std::int64_t second);
  void Count(Port& port, std::int64_t second);
  void EndSecond(Port& port);

  const System& system;
  int looks = 0;
  std::map<std::string, Port> ports;  // by the bytes of the name
  std::vector<PortNews> news;
};

// `12 messages at "App"` and the like, without a line end.
std::string NewsText(const PortNews& news);

}  // namespace corvalint::host
