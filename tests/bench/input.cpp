// From the desktop to the devices' streams.
#include <sys/socket.h>

#include <array>
#include <string>

#include "bench/bridge.h"
#include "bench/desk.h"
#include "bench/results.h"
#include "bench/stamp.h"
#include "bench/ways.h"

namespace corvalint::bench {

namespace {

constexpr int kWarmUpRounds = 5;
constexpr int kRounds = 101;
constexpr std::uint32_t kNote = 0x643C90;
std::array<std::uint8_t, 3> note{0x90, 0x3C, 0x64};

// One encoding and a bare send of the same bytes to each device.
void SendBare(const Bridge& bridge, const MidiAddress& address) {
  std::array<char, 1024> frame;
  const std::size_t size = EncodeMidiFrame(frame.data(), frame.size(), address.name.c_str(),
                                           address.id, 0, note.data(), note.size());
  for (std::size_t i = 0; i < bridge.Attached(); ++i) {
    if (send(bridge.Link(i).library, frame.data(), size, MSG_NOSIGNAL) !=
        static_cast<ssize_t>(size)) {
      GiveUp("a bare send did not take the frame");
    }
  }
}

template <class Action>
Stamp Cost(int times, const Action& action) {
  const Stamp begin = Stamp::Now();
  for (int i = 0; i < times; ++i) action();
  const Stamp end = Stamp::Now();
  return {end.wall - begin.wall, end.cpu - begin.cpu, end.allocations - begin.allocations};
}

// Nobody reads at the devices' ends during a round, so no send wakes a reader and none of its time
// is anybody else's. Afterwards everything is read. `messages` are sent in a round.
template <class Ours, class Bare>
void MeasureSending(Bridge& bridge, const std::string& measure, int messages, const Ours& sendOurs,
                    const Bare& sendBare) {
  Result result;
  result.measure = measure;
  bridge.DrainAll();
  for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
    const Stamp ours = Cost(messages, sendOurs);
    bridge.DrainAll();
    const Stamp limit = Cost(messages, sendBare);
    bridge.DrainAll();
    if (round < kWarmUpRounds) continue;
    result.ours.push_back(static_cast<double>(ours.cpu) / messages);
    result.limit.push_back(static_cast<double>(limit.cpu) / messages);
    result.allocations.push_back(static_cast<double>(ours.allocations) / messages);
  }
  Tell(result);
}

}  // namespace

void MeasureInput() {
  Bridge bridge(64, Buffers::large);
  const MidiAddress keys{kKeys, bridge.KeysId()};
  const auto bareKeys = [&] { SendBare(bridge, keys); };
  bridge.Attach(1);
  MeasureSending(
      bridge, "input to 1 device", 256, [] { PlayShort(kNote); }, bareKeys);

  const MidiAddress own{"Bench destination", 78};
  bridge.PublishDestination(0, own);
  const OpenPort port = PortNamed(own.name);
  MeasureSending(
      bridge, "port to its device", 256, [&] { port.Write(note.data(), 3); },
      [&] { SendBare(bridge, own); });

  for (const int devices : {16, 64}) {
    bridge.Attach(static_cast<std::size_t>(devices));
    MeasureSending(
        bridge, "input to " + std::to_string(devices) + " devices", 1024 / devices,
        [] { PlayShort(kNote); }, bareKeys);
  }
}

}  // namespace corvalint::bench
