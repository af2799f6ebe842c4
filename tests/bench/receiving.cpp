// From a device's stream to the call into the driver or the output, in bursts.
#include <unistd.h>

#include <string>
#include <vector>

#include "bench/bare_reader.h"
#include "bench/bridge.h"
#include "bench/burst.h"
#include "bench/desk.h"
#include "bench/results.h"
#include "bench/watched_threads.h"
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

// What is read in a round: `gate`, then `frames`, which are `count` frames with `arrivals`
// messages.
struct Traffic {
  std::vector<char> gate;
  std::vector<char> frames;
  std::size_t count;
  std::size_t arrivals;
};

void Measure(Bridge& bridge, Burst& burst, const std::string& measure, const Traffic& traffic) {
  const Loopback bare = MakeLoopback(Buffers::large);
  Result result;
  result.measure = measure;
  const auto run = [&](int socket) {
    return burst.Run(socket, traffic.gate, traffic.frames, traffic.count, traffic.arrivals);
  };
  {
    const BareReader reader(bare.library, burst);
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
      const Cost ours = run(bridge.Link(0).device);
      const Cost limit = run(bare.device);
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

void MeasureLoad(Bridge& bridge, Burst& burst, const Load& load, const MidiAddress& address,
                 const std::string& where) {
  const auto frame = MidiFrame(address, MidiOf(load.midi));
  Measure(bridge, burst, std::string("receive ") + load.name + " to " + where,
          {frame, Repeated(frame, load.messages), load.messages, load.messages});
}

// Frames of a kind that is dropped in silence: only cutting them out of the stream is left.
void MeasureCutting(Bridge& bridge, Burst& burst, const MidiAddress& address) {
  const auto frame = MidiFrame(address, MidiOf(3));
  auto other = frame;
  other[7] = 1;  // the kind's last byte
  const std::size_t count = kLoads[0].messages;
  auto frames = Repeated(other, count - 1);
  frames.insert(frames.end(), frame.begin(), frame.end());
  Measure(bridge, burst, "part: frame cut out of the stream", {frame, frames, count, 1});
}

}  // namespace

void MeasureReceiving() {
  WatchThreads();
  Bridge bridge(1, Buffers::large);
  bridge.Attach(1);
  RunAsMeasured(WatchedThreads().back().id);
  RunBesideTheMeasured(0);
  const MidiAddress source{"Bench sequencer, out", 77};
  bridge.PublishSource(0, source);
  Burst burst;
  arrivalListener = &burst;
  for (const Load& load : kLoads) MeasureLoad(bridge, burst, load, source, "a port");
  const MidiAddress output{"Bench sequencer, out", bridge.OutputId()};
  for (const Load& load : kLoads) MeasureLoad(bridge, burst, load, output, "an output");
  MeasureCutting(bridge, burst, source);
}

}  // namespace corvalint::bench
