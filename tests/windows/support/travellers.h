#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "windows/support/bridge.h"
#include "windows/support/osc_ports.h"

namespace corvalint::windows_test {

// How often the part stands in the text.
std::size_t CountOf(const std::string& text, std::string_view part);

// Several devices that come, play and go again and again.
class Travellers {
 public:
  // The bridge needs an input "Keys" that is on, and an output "Synth" that is on and has that id.
  Travellers(Bridge& theBridge, std::size_t count, std::int32_t outputId);

  // All arrive, play, hear the keyboard, exchange a datagram with a desktop program and leave. The
  // first one leaves with its stream open, which takes the library a second; the cables of the
  // others are cut before. What goes wrong fails the test.
  void Journey();

  std::size_t Departures() const { return journeys * devices.size(); }

 private:
  void ArriveAndPlay();
  void Leave();

  Bridge& bridge;
  const std::int32_t synth;
  std::vector<std::unique_ptr<PluggedDevice>> devices;
  std::vector<std::unique_ptr<OscPort>> oscPorts;  // one of each device, opened on each journey
  std::uint64_t journeys = 0;
};

// In words, for a person.
std::string Told(const harness::ProcessCounts& counts);

// Whether threads, handles and sockets are as many.
bool SameCounts(const harness::ProcessCounts& one, const harness::ProcessCounts& other);

}  // namespace corvalint::windows_test
