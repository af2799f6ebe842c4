#include "windows/support/osc_leaks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace corvalint::windows_test {

namespace {

std::string Told(const harness::ProcessCounts& counts) {
  return std::to_string(counts.threads) + " threads, " + std::to_string(counts.handles) +
         " handles, " + std::to_string(counts.sockets) + " sockets";
}

bool Same(const harness::ProcessCounts& one, const harness::ProcessCounts& other) {
  return one.threads == other.threads && one.handles == other.handles &&
         one.sockets == other.sockets;
}

}  // namespace

bool EndedThreads::WaitFor(std::size_t count) {
  const std::string line = "Finished\r\n";
  return bridge.GetHost().GetProcess().WaitForOutput(
      [&](const std::string& console) {
        for (std::size_t at; (at = console.find(line, position)) != std::string::npos; ++seen) {
          position = at + line.size();
        }
        return seen >= count;
      },
      3 * kPatience);  // eighty threads end at once, some after the second that a stream takes
}

harness::ProcessCounts SettledCounts(Bridge& bridge, EndedThreads& threads, std::size_t ended) {
  constexpr std::chrono::milliseconds kBetweenLooks{200};
  if (!threads.WaitFor(ended)) throw std::runtime_error("threads do not end");
  const auto end = std::chrono::steady_clock::now() + kPatience;
  harness::ProcessCounts counts = bridge.Control().Counts();
  for (int same = 0; same < 2;) {
    if (std::chrono::steady_clock::now() > end) throw std::runtime_error("counts do not settle");
    std::this_thread::sleep_for(kBetweenLooks);
    const harness::ProcessCounts now = bridge.Control().Counts();
    same = Same(now, counts) ? same + 1 : 0;
    counts = now;
  }
  return counts;
}

void ExpectNothingLeft(const std::string& what, const std::vector<harness::ProcessCounts>& counts) {
  const harness::ProcessCounts& first = counts.front();
  const harness::ProcessCounts& last = counts.back();
  std::cout << what << ": before " << Told(first) << "; after " << Told(last)
            << "; handles on the way";
  for (const auto& look : counts) std::cout << ' ' << look.handles;
  std::cout << '\n';
  EXPECT_EQ(last.threads, first.threads);
  EXPECT_EQ(last.sockets, first.sockets);
  const auto steady = std::adjacent_find(
      counts.begin(), counts.end(),
      [](const auto& before, const auto& after) { return after.handles <= before.handles; });
  EXPECT_NE(steady, counts.end()) << "handles became more in every stretch";
  // A lock may make a kernel object when two threads first meet at it.
  EXPECT_LE(last.handles, first.handles + 5);
}

}  // namespace corvalint::windows_test
