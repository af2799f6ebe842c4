// A thousand arrivals and departures at the shipped DLL, in the console host under Wine, to see
// whether anything of that process grows.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "soak/trend.h"
#include "windows/support/serving.h"
#include "windows/support/travellers.h"

namespace corvalint::windows_test {
namespace {

constexpr std::size_t kDevices = 10;
constexpr int kWarmUpJourneys = 4;
constexpr int kJourneysPerSample = 4;
constexpr double kLogLimit = (2048 + 1) * 1024.0;  // one line may be written over the limit
// A lock may make a kernel object when two threads first meet at it; the locks are few.
constexpr double kHandlesOfLocks = 5;
// A leak of five bytes in each cycle would be seen.
constexpr double kHeapNoise = 4 * 1024;
// The desk's queues are as long as it happens, since it reports what it does on the way.
constexpr double kDeskHeapNoise = 16 * 1024;

long journeys = 0;
std::string table;

// What the process holds after a journey. A client whose device was cut off sleeps before it looks
// again, and its thread ends after that; one that does not will be seen in the sample.
harness::ProcessCounts AtRest(Bridge& bridge, std::uint32_t threads) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  harness::ProcessCounts counts = bridge.Control().Counts();
  while (counts.threads > threads && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    counts = bridge.Control().Counts();
  }
  return counts;
}

TEST(WineCycles, NothingGrows) {
  Bridge bridge({"Keys"}, {"Synth"});
  bridge.SwitchSourceOn("Keys");
  Travellers travellers(bridge, kDevices, bridge.SwitchDestinationOn("Synth"));
  const std::uint32_t threads = bridge.Control().Counts().threads;
  soak::Trend trend({{"threads", 0.5, 0},
                     {"handles", kHandlesOfLocks, 0},
                     {"sockets", 0.5, 0},
                     {"heap", kHeapNoise, 0},
                     {"deskheap", kDeskHeapNoise, 0},
                     {"workingset", 2 * 1024 * 1024, 0},
                     {"log", -1, kLogLimit}},
                    static_cast<std::size_t>(journeys / kJourneysPerSample + 1));
  for (long i = 0; i < kWarmUpJourneys + journeys; ++i) {
    ASSERT_NO_FATAL_FAILURE(travellers.Journey());
    bridge.Control().ClearCalls();
    ASSERT_EQ(bridge.GetHost().Clients(), 0);
    if (i < kWarmUpJourneys || (i + 1) % kJourneysPerSample != 0) continue;
    const harness::ProcessCounts counts = AtRest(bridge, threads);
    ASSERT_GT(counts.heapBytes, counts.deskHeapBytes) << "the heaps could not be walked";
    trend.Add((static_cast<std::uint64_t>(i) - kWarmUpJourneys + 1) * kDevices,
              {static_cast<double>(counts.threads), static_cast<double>(counts.handles),
               static_cast<double>(counts.sockets),
               static_cast<double>(counts.heapBytes - counts.deskHeapBytes),
               static_cast<double>(counts.deskHeapBytes), static_cast<double>(counts.workingSet),
               static_cast<double>(
                   std::filesystem::file_size(bridge.GetDesk().Folder() / "pellora.log"))});
  }
  trend.Write(table);
  std::printf("%ld attach/detach cycles of the DLL under Wine, %zu devices at once\n",
              journeys * static_cast<long>(kDevices), kDevices);
  EXPECT_TRUE(trend.Judge(stdout));
  ExpectClean(bridge, {});
}

}  // namespace

bool Parse(int count, char** arguments) {
  if (count != 3) return false;
  const long cycles = std::strtol(arguments[1], nullptr, 10);
  journeys = (cycles + static_cast<long>(kDevices) - 1) / static_cast<long>(kDevices);
  table = arguments[2];
  return cycles > 0;
}

}  // namespace corvalint::windows_test

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  if (!corvalint::windows_test::Parse(count, arguments)) {
    std::fprintf(stderr, "usage: %s CYCLES TABLE\n", arguments[0]);
    return 2;
  }
  return RUN_ALL_TESTS();
}
