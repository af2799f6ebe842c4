#pragma once

#include <string>
#include <vector>

#include "windows/support/bridge.h"

// What the host's process holds after ports and devices have come and gone.
namespace corvalint::windows_test {

// The threads of ports and of devices that have said that they end, since the host began. For one
// thread.
class EndedThreads {
 public:
  // The bridge outlives the object.
  explicit EndedThreads(Bridge& observed) : bridge(observed) {}
  // Until there are so many in all.
  bool WaitFor(std::size_t count);
  // How many there were when that was last asked.
  std::size_t Seen() const { return seen; }

 private:
  Bridge& bridge;
  std::size_t seen = 0;
  std::size_t position = 0;  // on the console, behind the last one
};

// What the process holds once so many threads have ended and three looks in a row found the same.
// Throws std::runtime_error when that does not come about.
harness::ProcessCounts SettledCounts(Bridge& bridge, EndedThreads& threads, std::size_t ended);

// Prints the counts, of which there is one after each stretch of a test, and expects that nothing
// was left behind between them. A lock may make a kernel object when two threads first meet at it,
// so a stretch may end with a handle or two more than it began with. What leaks shows in every one.
void ExpectNothingLeft(const std::string& what, const std::vector<harness::ProcessCounts>& counts);

}  // namespace corvalint::windows_test
