// From the desktop to the devices' streams.
#include <string>

#include "bench/bare_sends.h"
#include "bench/bridge.h"
#include "bench/desk.h"
#include "bench/results.h"
#include "bench/ways.h"

namespace corvalint::bench {

namespace {

constexpr int kWarmUpRounds = 5;
constexpr int kRounds = 101;

template <class Ours, class Bare>
void MeasureSending(Bridge& bridge, const std::string& measure, int slices, const Ours& sendOurs,
                    const Bare& sendBare) {
  Result result;
  result.measure = measure;
  for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
    const Cost ours = CostOfSending(bridge, slices, sendOurs);
    const Cost limit = CostOfSending(bridge, slices, sendBare);
    if (round < kWarmUpRounds) continue;
    result.ours.push_back(ours.cpu);
    result.limit.push_back(limit.cpu);
    result.allocations.push_back(ours.allocations);
  }
  Tell(result);
}

}  // namespace

void MeasureInput() {
  Bridge bridge(64, Buffers::large);
  const MidiAddress keys{kKeys, bridge.KeysId()};
  const auto bareKeys = [&] { SendBare(bridge, keys, 0, bridge.Attached()); };
  bridge.Attach(1);
  MeasureSending(
      bridge, "input to 1 device", 32, [] { PlayShort(kPackedNote); }, bareKeys);

  const MidiAddress own{"Bench sequencer, in", 78};
  bridge.PublishDestination(0, own);
  const OpenPort port = PortNamed(own.name);
  MeasureSending(
      bridge, "port to its device", 32, [&] { port.Write(noteBytes.data(), 3); },
      [&] { SendBare(bridge, own, 0, 1); });

  for (const int devices : {16, 64}) {
    bridge.Attach(static_cast<std::size_t>(devices));
    MeasureSending(
        bridge, "input to " + std::to_string(devices) + " devices", 128 / devices,
        [] { PlayShort(kPackedNote); }, bareKeys);
  }
}

}  // namespace corvalint::bench
