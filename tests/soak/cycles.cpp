// Thousands of arrivals and departures with traffic on every way, to see whether anything grows.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "soak/complaints.h"
#include "soak/desk_view.h"
#include "soak/process_counts.h"
#include "soak/report.h"
#include "soak/traffic.h"
#include "soak/trend.h"

namespace corvalint::soak {
namespace {

constexpr std::size_t kDevices = 8;
constexpr std::uint64_t kWarmUpRounds = 25;
constexpr std::uint64_t kSamples = 250;
constexpr double kLogLimit = (2048 + 1) * 1024.0;  // one line may be written over the limit

struct Desk {
  int keys = 0;
  int synth = 0;
};

// How a device goes differs from round to round: with its ports published or withdrawn, with an OSC
// port open or not, with its cable cut before or its stream open.
void Leave(World& world, std::size_t number, std::uint64_t round) {
  WorldDevice& device = world.Device(number);
  if ((round + number) % 2 == 0) WithdrawPort(world, number);
  const bool cut = (round + number) % 3 == 0;
  if (cut) {
    // Otherwise it would be connected to again, before its departure is told, now and then.
    device.app.RefuseConnections();
    device.app.Cut(round % 2 == 0 ? device::CutHow::kReset : device::CutHow::kFinish);
  }
  world.Detach(device);
  if (cut) device.app.AcceptConnections();
}

bool Round(World& world, const Desk& desk, std::uint64_t round) {
  for (std::size_t i = 0; i < kDevices; ++i) world.Attach(world.Device(i));
  for (std::size_t i = 0; i < kDevices; ++i) {
    WorldDevice& device = world.Device(i);
    if (!Expect(device.app.WaitForStream(round + 1, kPatience), "a device got no stream")) {
      return false;
    }
    Expect(device.app.AlignClockAndWait(1, kPatience), "a device's clock is not aligned");
    PlayBothWays(world, i, desk.synth);
    UseOsc(device, round % 2 == 0);
  }
  HearKeyboard(world);
  for (std::size_t i = 0; i < kDevices; ++i) Leave(world, i, round);
  // An app that was cut off reads the end of its stream by itself.
  for (std::size_t i = 0; i < kDevices; ++i) {
    Expect(world.Device(i).app.WaitForStreamEnd(round + 1, kPatience), "a stream does not end");
  }
  return world.WaitUntilAllLeft() && ComplaintCount() == 0;
}

// Threads that have returned may be there for a moment still, and the heap may hold pages that were
// in use at a busier moment.
std::vector<double> Sample(const World& world, std::uint64_t threadsAtRest) {
  Await([&] { return CountProcess().threads <= threadsAtRest; });
  malloc_trim(0);
  const ProcessCounts counts = CountProcess();
  return {static_cast<double>(counts.threads),       static_cast<double>(counts.descriptors),
          static_cast<double>(counts.sockets),       static_cast<double>(counts.heapBytes),
          static_cast<double>(counts.residentBytes), static_cast<double>(world.Folder().LogSize())};
}

bool Run(std::uint64_t cycles, const std::string& table) {
  WorldOptions options;
  options.clockDivisor = 1000;
  options.devices = kDevices;
  World world(options);
  world.Winmm().Plug({"Keys"}, {"Synth"});
  const auto keys = WaitForOnly(kSources, "Keys");
  const auto synth = WaitForOnly(kDestinations, "Synth");
  if (!keys || !synth) return false;
  SwitchOn(kSources, *keys);
  SwitchOn(kDestinations, *synth);
  Expect(CountProcess().heapBytes > 0, "the heap is not counted; a sanitizer's never is");
  const std::uint64_t atRest = CountProcess().threads;

  const std::uint64_t rounds = (cycles + kDevices - 1) / kDevices;
  const std::uint64_t between = std::max<std::uint64_t>(1, rounds / kSamples);
  Trend trend({{"threads", 0.5, 0},
               {"descriptors", 0.5, 0},
               {"sockets", 0.5, 0},
               {"heap", 8 * 1024, 0},
               {"resident", 1024 * 1024, 0},
               {"log", -1, kLogLimit}},
              rounds / between);
  for (std::uint64_t round = 0; round < kWarmUpRounds + rounds; ++round) {
    if (!Round(world, {*keys, *synth}, round)) return false;
    if (round < kWarmUpRounds || (round - kWarmUpRounds + 1) % between != 0) continue;
    trend.Add((round - kWarmUpRounds + 1) * kDevices, Sample(world, atRest));
  }
  trend.Write(table);
  std::fprintf(Report(), "%llu attach/detach cycles, %zu devices at once, after %llu to warm up\n",
               static_cast<unsigned long long>(rounds * kDevices), kDevices,
               static_cast<unsigned long long>(kWarmUpRounds * kDevices));
  return trend.Judge(Report());
}

// Blocks that threads keep for themselves count as used, and they keep more the longer they live;
// so they keep none, and share one heap. Nor are the stacks of ended threads kept for the next
// ones: how many there are depends on how many threads once ran at the same time. The C library
// looks at the variable only at the start of the program, which is therefore started again.
void CountEveryByte(char** arguments) {
  constexpr const char* kVariable = "GLIBC_TUNABLES";
  if (std::getenv(kVariable) != nullptr) return;
  setenv(kVariable,
         "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1:glibc.pthread.stack_cache_size=0",
         1);
  execv("/proc/self/exe", arguments);
  std::fprintf(stderr, "the program cannot be started again; the heap will seem to grow\n");
}

int Main(int count, char** arguments) {
  const long cycles = count == 3 ? std::strtol(arguments[1], nullptr, 10) : 0;
  if (cycles <= 0) {
    std::fprintf(stderr, "usage: %s CYCLES TABLE\n", arguments[0]);
    return 2;
  }
  CountEveryByte(arguments);
  TakeStandardOutput();
  const bool flat = Run(static_cast<std::uint64_t>(cycles), arguments[2]);
  return ReportComplaints() && flat ? 0 : 1;
}

}  // namespace
}  // namespace corvalint::soak

int main(int count, char** arguments) { return corvalint::soak::Main(count, arguments); }
