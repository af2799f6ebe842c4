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
#include "bench/ways.h"

namespace corvalint::bench {

namespace {

constexpr std::size_t kManyDevices = 64;
constexpr std::size_t kManyEndpoints = 16;
constexpr int kWarmUpRounds = 3;
constexpr int kRounds = 31;
constexpr int kSlices = 4;    // of a round that sends
constexpr int kBurst = 2000;  // of a round that only receives

// What a round of a site measures, in nanoseconds for each message.
enum class Kind : std::uint8_t {
  input,         // from the desktop's keys to all devices
  bareToAll,     // one encoding and a bare send to each device
  relayed,       // from a device to its own port and to all other devices
  bareToOthers,  // one encoding and a bare send to each device but one
  output,        // from a device to an output
  port,          // from a program through a port to its device
};

// The library with so many devices, each with so many endpoints in use. What is measured belongs to
// a device and an endpoint in the middle.
class Site {
 public:
  Site(std::size_t devices, std::size_t endpoints)
      : bridge(devices, Buffers::large), device(devices / 2) {
    bridge.Attach(devices);
    for (std::size_t d = 0; d < devices; ++d) {
      for (std::size_t e = 0; e < endpoints; ++e) Publish(d, e);
      bridge.DrainAll();
    }
    middle = Endpoint(device, endpoints / 2);
    port = PortNamed(middle.name);
    arrivalListener = &burst;
  }

  double Round(Kind kind) {
    bridge.DrainAll();
    switch (kind) {
      case Kind::input:
        return Sending([] { PlayShort(kPackedNote); });
      case Kind::bareToAll:
        return Sending([&] { SendBare(bridge, {kKeys, 7}, 0, bridge.Attached()); });
      case Kind::relayed:
        return bridge.Attached() == 1 ? Receiving(middle, kBurst) : Relaying();
      case Kind::bareToOthers:
        return Sending([&] { SendBare(bridge, middle, 1, bridge.Attached()); });
      case Kind::output:
        return Receiving({middle.name, bridge.OutputId()}, kBurst);
      case Kind::port:
        break;
    }
    return Sending([&] { port.Write(noteBytes.data(), noteBytes.size()); });
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
  double Sending(const Action& action) {
    return CostOfSending(bridge, kSlices, action).cpu;
  }

  double Receiving(const MidiAddress& address, std::size_t count) {
    const auto frame = MidiFrame(address, MidiOf(3));
    return burst.Run(bridge.Link(device).device, frame, Repeated(frame, count), count).cpu;
  }

  // The gate's frame goes out to the others too.
  double Relaying() {
    double sum = 0;
    for (int slice = 0; slice < kSlices; ++slice) {
      sum += Receiving(middle, kFramesAtOnce - 1);
      bridge.Flush(device);
      bridge.DrainAll();
    }
    return sum / kSlices;
  }

  Bridge bridge;
  const std::size_t device;
  MidiAddress middle;
  OpenPort port;
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

  double Round(Kind kind) {
    double cost = 0;
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
      const double cost = site.Round(kind);
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
  OtherSite large;  // before this process has threads
  Site small(1, 1);
  const auto nothing = [](Site&, OtherSite&) { return 0.0; };
  const std::array ways{Way{"64 x 16: input to all devices", Kind::input, 64,
                            [](Site& one, OtherSite& many) {
                              return many.Round(Kind::bareToAll) - one.Round(Kind::bareToAll);
                            }},
                        Way{"64 x 16: device to its port and all others", Kind::relayed, 64,
                            [](Site&, OtherSite& many) { return many.Round(Kind::bareToOthers); }},
                        Way{"64 x 16: device to an output", Kind::output, 1, nothing},
                        Way{"64 x 16: port to its device", Kind::port, 1, nothing}};
  for (const Way& way : ways) {
    Result result;
    result.measure = way.measure;
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
      const double many = large.Round(way.kind);
      const double one = small.Round(way.kind);
      const double least = one + way.difference(small, large);
      if (round < kWarmUpRounds) continue;
      result.ours.push_back(many / way.deliveries);
      result.limit.push_back(least / way.deliveries);
    }
    Tell(result);
  }
}

}  // namespace corvalint::bench
