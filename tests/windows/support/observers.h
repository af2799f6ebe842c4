#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "device/simulated_device.h"
#include "harness/desk.h"

// Ways to look at what the library said and did, for tests that compare it exactly.
namespace corvalint::windows_test {

// The library's console from the moment at which this object is made, as the library prints it:
// with line feeds alone. The lines that every scan writes for each device it finds again are left
// out, since a scan may come at any time.
//
// The console has a pipe of its own, so what was printed may still be on its way when an answer of
// the host or of a device is there. Every look therefore makes the library print a mark first, by a
// notification without a device, and waits for it; the mark's lines are left out as well.
class ConsoleView {
 public:
  // The desk outlives the object.
  explicit ConsoleView(harness::Desk& observedDesk);

  // All whole lines that were printed before this call.
  std::string Text() const;
  // Waits until there is at least as much text as is expected, and gives all that there is.
  std::string After(std::string_view expected) const;
  // Begins again with what is printed from now on.
  void Restart();

 private:
  void Settle() const;

  harness::Desk& desk;
  std::size_t start = 0;
};

// One line of the log file.
struct LogLine {
  std::uint32_t thread = 0;
  std::string level;
  std::string message;
};

// The lines of a log. A line that is not of the log's form has the level "?" and is the message.
std::vector<LogLine> LinesOf(std::string_view log);
// "LEVEL message" of each line from position `from` on.
std::vector<std::string> TextsOf(const std::vector<LogLine>& lines, std::size_t from = 0);

// The calls into these functions, in order.
std::vector<harness::CallEntry> CallsTo(harness::DeskControl& control,
                                        const std::vector<std::string>& functions);
std::vector<std::string> NamesOf(const std::vector<harness::CallEntry>& calls);

// The frames with a message to this address, in order, header and all.
std::vector<device::Bytes> FramesTo(const device::SimulatedDevice& app, std::string_view address);
// Until `count` messages to the address have arrived since the last Clear.
bool WaitForMessagesTo(const device::SimulatedDevice& app, std::string_view address,
                       std::size_t count);

// A span of the performance counter, which the library and the test both read.
class TickWindow {
 public:
  // Begins now.
  explicit TickWindow(harness::DeskControl& deskControl);
  // Ends it now.
  void Close();

  // The tick in the window for which the condition on the host time holds; -1 if there is none.
  template <class Condition>
  std::int64_t Find(Condition condition) const {
    for (std::int64_t tick = first; tick <= last; ++tick) {
      if (condition(HostTimeAt(tick))) return tick;
    }
    return -1;
  }
  bool Contains(std::int64_t hostTime) const {
    return Find([hostTime](std::int64_t candidate) { return candidate == hostTime; }) >= 0;
  }

  // Host time in nanoseconds at a reading of the 10 MHz counter; the product wraps at 64 bits.
  static std::int64_t HostTimeAt(std::int64_t tick);

 private:
  harness::DeskControl& control;
  std::int64_t first;
  std::int64_t last;
};

}  // namespace corvalint::windows_test
