// From a device's stream to the call into the driver or the output, in bursts.
#include <unistd.h>

#include "bench/bare_reader.h"
#include "bench/bridge.h"
#include "bench/burst.h"
#include "bench/desk.h"
#include "bench/results.h"
#include "bench/ways.h"

namespace corvalint::bench {

namespace {

constexpr int kWarmUpRounds = 5;
constexpr int kRounds = 201;

struct Load {
  const char* name;
  std::size_t midi;      // bytes in each message
  std::size_t messages;  // in a burst
};

constexpr Load kLoads[] = {{"3 bytes", 3, 2000}, {"1 KiB", 1024, 500}, {"64 KiB", 65536, 16}};

void MeasureLoad(Bridge& bridge, Burst& burst, const Load& load, const MidiAddress& address,
                 const std::string& where) {
  const Loopback bare = MakeLoopback(Buffers::large);
  Result result;
  result.measure = std::string("receive ") + load.name + " to " + where;
  {
    const BareReader reader(bare.library, burst);
    const auto gate = MidiFrame(address, MidiOf(load.midi));
    const auto frames = Repeated(gate, load.messages);
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
      const auto ours = burst.Run(bridge.Link(0).device, gate, frames, load.messages);
      const auto limit = burst.Run(bare.device, gate, frames, load.messages);
      if (round < kWarmUpRounds) continue;
      result.ours.push_back(ours.cpu);
      result.limit.push_back(limit.cpu);
      result.allocations.push_back(ours.allocations);
    }
    close(bare.device);
  }
  close(bare.library);
  Tell(result);
}

}  // namespace

void MeasureReceiving() {
  Bridge bridge(1, Buffers::large);
  bridge.Attach(1);
  const MidiAddress source{"Bench source", 77};
  bridge.PublishSource(0, source);
  Burst burst;
  arrivalListener = &burst;
  for (const Load& load : kLoads) MeasureLoad(bridge, burst, load, source, "a port");
  const MidiAddress output{"Bench source", bridge.OutputId()};
  for (const Load& load : kLoads) MeasureLoad(bridge, burst, load, output, "an output");
}

}  // namespace corvalint::bench
