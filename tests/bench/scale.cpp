// What a delivered message costs with many devices and endpoints, against one of each.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <vector>

#include "bench/bare_sends.h"
#include "bench/bridge.h"
#include "bench/burst.h"
#include "bench/desk.h"
#include "bench/results.h"
#include "bench/watched_threads.h"
#include "bench/ways.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kManyDevices = 64;
constexpr std::size_t kManyEndpoints = 16;
constexpr int kWarmUpRounds = 3;
constexpr int kRounds = 31;
constexpr int kSlices = 4;    // of a round that sends
constexpr int kBurst = 2000;  // of a round that only receives

// What a round of a site measures, for each message.
enum class Kind : std::uint8_t {
  input,         // from the desktop's keys to all devices
  bareToAll,     // one encoding and a bare send to each device
  relayed,       // from a device to its own port and to all other devices
  bareToOthers,  // one encoding and a bare send to each device but one
  output,        // from a device to an output
  port,          // from a program through a port to its device
};

// The library with so many devices, each with so many endpoints in use. What is measured belongs to
// a device in the middle, and to its endpoints in turn.
class Site {
 public:
  Site(std::size_t devices, std::size_t endpoints)
      : bridge(devices, Buffers::large), device(devices / 2) {
    bridge.Attach(devices);
    RunAsMeasured(0);
    RunAsMeasured(WatchedThreads()[kServiceThreads + device].id);
    for (std::size_t d = 0; d < devices; ++d) {
      for (std::size_t e = 0; e < endpoints; ++e) Publish(d, e);
      bridge.DrainAll();
    }
    for (std::size_t e = 0; e < endpoints; ++e) {
      own.push_back(Endpoint(device, e));
      ports.push_back(PortNamed(own.back().name));
    }
    arrivalListener = &burst;
  }

  Cost Round(Kind kind) {
    bridge.DrainAll();
    switch (kind) {
      case Kind::input:
        return Sending([] { PlayShort(kPackedNote); });
      case Kind::bareToAll:
        return Sending([&] { SendBare(bridge, keys, 0, bridge.Attached()); });
      case Kind::relayed:
        return bridge.Attached() == 1 ? Receiving(own, kBurst) : Relaying();
      case Kind::bareToOthers:
        return Sending([&] { SendBare(bridge, own.front(), 1, bridge.Attached()); });
      case Kind::output:
        return Receiving({{own.front().name, bridge.OutputId()}}, kBurst);
      case Kind::port:
        break;
    }
    std::size_t next = 0;
    return Sending([&] {
      ports[next].Write(noteBytes.data(), noteBytes.size());
      if (++next == ports.size()) next = 0;
    });
  }

 private:
  // Names and ids are as long as they are at the largest site.
  static MidiAddress Endpoint(std::size_t device, std::size_t endpoint) {
    return {"Port of no. " + std::to_string(100 + device) + "-" + std::to_string(10 + endpoint),
            static_cast<std::int32_t>(1000 * (device + 1) + endpoint)};
  }

  void Publish(std::size_t owner, std::size_t number) {
    bridge.PublishSource(owner, Endpoint(owner, number));
    bridge.PublishDestination(owner, Endpoint(owner, number));
  }

  template <class Action>
  Cost Sending(const Action& action) {
    return CostOfSending(bridge, kSlices, action);
  }

  Cost Receiving(const std::vector<MidiAddress>& addresses, std::size_t count) {
    std::vector<char> frames;
    for (std::size_t i = 0; i < count; ++i) {
      const auto frame = MidiFrame(addresses[i % addresses.size()], MidiOf(3));
      frames.insert(frames.end(), frame.begin(), frame.end());
    }
    const auto gate = MidiFrame(addresses.back(), MidiOf(3));
    return burst.Run(bridge.Link(device).device, gate, frames, count);
  }

  // The gate's frame goes out to the others too.
  Cost Relaying() {
    Cost sum;
    for (int slice = 0; slice < kSlices; ++slice) {
      const Cost cost = Receiving(own, kFramesAtOnce - 1);
      sum.cpu += cost.cpu;
      sum.allocations += cost.allocations;
      bridge.Flush(device);
      bridge.DrainAll();
    }
    return sum.For(kSlices);
  }

  static constexpr std::size_t kServiceThreads = 2;

  Bridge bridge;
  const MidiAddress keys{kKeys, bridge.KeysId()};
  const std::size_t device;
  std::vector<MidiAddress> own;
  std::vector<OpenPort> ports;
  Burst burst;
};

// The large site in a process of its own, so that its rounds can alternate with those of the small
// one.
class OtherSite {
 public:
  OtherSite() {
    if (pipe(orders.data()) != 0 || pipe(answers.data()) != 0) GiveUp("no pipe");
    child = fork();
    if (child < 0) GiveUp("no second process");
    if (child == 0) Serve();
    close(orders[0]);
    close(answers[1]);
  }
  ~OtherSite() {
    close(orders[1]);
    waitpid(child, nullptr, 0);
  }
  OtherSite(const OtherSite&) = delete;
  OtherSite& operator=(const OtherSite&) = delete;

  Cost Round(Kind kind) {
    Cost cost;
    if (write(orders[1], &kind, sizeof kind) != sizeof kind ||
        read(answers[0], &cost, sizeof cost) != sizeof cost) {
      GiveUp("the second process has ended");
    }
    return cost;
  }

 private:
  [[noreturn]] void Serve() {
    close(orders[1]);
    Site site(kManyDevices, kManyEndpoints);
    Kind kind{};
    while (read(orders[0], &kind, sizeof kind) == sizeof kind) {
      const Cost cost = site.Round(kind);
      if (write(answers[1], &cost, sizeof cost) != sizeof cost) break;
    }
    _exit(0);
  }

  std::array<int, 2> orders{};
  std::array<int, 2> answers{};
  pid_t child = 0;
};

// A way, how many deliveries a message of it has at the large site, and what the least is that a
// message costs there: what it costs at the small site, with the small site's bare sends replaced
// by the large site's.
struct Way {
  const char* measure;
  Kind kind;
  double deliveries;
  std::function<double(Site& small, OtherSite& large)> difference;
};

}  // namespace

void MeasureScale() {
  WatchThreads();
  OtherSite large;  // before this process has threads
  Site small(1, 1);
  const auto nothing = [](Site&, OtherSite&) { return 0.0; };
  const std::array ways{
      Way{"64 x 16: input to all devices", Kind::input, 64,
          [](Site& one, OtherSite& many) {
            return many.Round(Kind::bareToAll).cpu - one.Round(Kind::bareToAll).cpu;
          }},
      Way{"64 x 16: device to its port and all others", Kind::relayed, 64,
          [](Site&, OtherSite& many) { return many.Round(Kind::bareToOthers).cpu; }},
      Way{"64 x 16: device to an output", Kind::output, 1, nothing},
      Way{"64 x 16: port to its device", Kind::port, 1, nothing}};
  for (const Way& way : ways) {
    Result result;
    result.measure = way.measure;
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
      const Cost many = large.Round(way.kind);
      const double least = small.Round(way.kind).cpu + way.difference(small, large);
      if (round < kWarmUpRounds) continue;
      result.ours.push_back(many.cpu / way.deliveries);
      result.limit.push_back(least / way.deliveries);
      result.allocations.push_back(many.allocations);
    }
    Tell(result);
  }
}

}  // namespace corvalint::bench
