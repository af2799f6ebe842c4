// What connected devices cost while nobody plays: wake-ups of threads, and memory.
#include <linux/sock_diag.h>
#include <malloc.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <thread>

#include "bench/bridge.h"
#include "bench/desk.h"
#include "bench/results.h"
#include "bench/watched_threads.h"
#include "bench/ways.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kDevices = 8;
constexpr std::chrono::seconds kMinute{60};
constexpr double kScans = 60.0 / 5;  // of the service thread
constexpr double kServerSleeps = 60.0 / 10;
constexpr std::size_t kServiceThreads = 2;

// Every device has published a port and played and heard something.
void Use(Bridge& bridge) {
  for (std::size_t i = 0; i < bridge.Attached(); ++i) {
    const MidiAddress source{"Port of device no. " + std::to_string(i),
                             static_cast<std::int32_t>(100 + i)};
    bridge.PublishSource(i, source);
    bridge.PublishDestination(i, source);
    for (const std::size_t size : {std::size_t{3}, std::size_t{1024}, std::size_t{65536}}) {
      const auto frame = MidiFrame(source, MidiOf(size));
      WriteAll(bridge.Link(i).device, frame.data(), frame.size());
      bridge.Flush(i);
      bridge.DrainAll();
    }
  }
  PlayShort(0x643C90);
  bridge.DrainAll();
}

void TellOne(const std::string& measure, const char* unit, double value, double limit = -1) {
  Result result;
  result.measure = measure;
  result.unit = unit;
  result.ours.push_back(value);
  if (limit >= 0) result.limit.push_back(limit);
  Tell(result);
}

std::vector<std::uint64_t> SleepsOfAll(const std::vector<WatchedThread>& threads) {
  std::vector<std::uint64_t> sleeps;
  for (const WatchedThread& thread : threads) sleeps.push_back(SleepsOf(thread.id));
  return sleeps;
}

double HeapInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd);
}

// Receive and send side together: what the system has set aside, and what it holds at most.
struct KernelBuffers {
  double held = 0;
  double most = 0;
};

KernelBuffers BuffersOf(int socket) {
  std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
  socklen_t size = sizeof memory;
  if (getsockopt(socket, SOL_SOCKET, SO_MEMINFO, memory.data(), &size) != 0) return {};
  return {static_cast<double>(memory[SK_MEMINFO_RMEM_ALLOC] + memory[SK_MEMINFO_WMEM_QUEUED] +
                              memory[SK_MEMINFO_FWD_ALLOC]),
          static_cast<double>(memory[SK_MEMINFO_RCVBUF] + memory[SK_MEMINFO_SNDBUF])};
}

}  // namespace

void MeasureIdleMinute() {
  WatchThreads();
  Bridge bridge(kDevices, Buffers::asTheyCome);
  bridge.Attach(kDevices);
  Use(bridge);
  const auto threads = WatchedThreads();
  if (threads.size() != kServiceThreads + kDevices) GiveUp("unexpected threads");
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const auto before = SleepsOfAll(threads);
  std::this_thread::sleep_for(kMinute);
  const auto after = SleepsOfAll(threads);
  const auto slept = [&](std::size_t i) { return static_cast<double>(after[i] - before[i]); };
  double clients = 0;
  for (std::size_t i = kServiceThreads; i < threads.size(); ++i) clients += slept(i);
  TellOne("idle minute: wake-ups of the service thread", "", slept(0), kScans);
  TellOne("idle minute: wake-ups of the server thread", "", slept(1), kServerSleeps);
  TellOne("idle minute: wake-ups of 8 clients together", "", clients, 0);
}

void MeasureMemory() {
  WatchThreads();
  Bridge bridge(2 * kDevices, Buffers::asTheyCome);
  bridge.Attach(kDevices);
  Use(bridge);
  const double before = HeapInUse();
  bridge.Attach(2 * kDevices);
  const double connected = HeapInUse();
  Use(bridge);
  const double used = HeapInUse();
  double stacks = 0;
  const auto threads = WatchedThreads();
  for (std::size_t i = kServiceThreads; i < threads.size(); ++i) {
    stacks += static_cast<double>(StackTouchedBy(threads[i]));
  }
  const KernelBuffers buffers = BuffersOf(bridge.Link(0).library);
  TellOne("memory per device: heap once connected", "bytes", (connected - before) / kDevices);
  TellOne("memory per device: heap once it has played", "bytes", (used - before) / kDevices);
  TellOne("memory per device: stack touched", "bytes",
          stacks / static_cast<double>(threads.size() - kServiceThreads));
  TellOne("memory per device: kernel buffers in use", "bytes", buffers.held);
  TellOne("memory per device: kernel buffers at most", "bytes", buffers.most);
}

}  // namespace corvalint::bench
