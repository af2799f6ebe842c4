#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "bench/bridge.h"
#include "bench/stamp.h"

namespace corvalint::bench {

// A note on, as bytes and as winmm packs it.
inline std::array<std::uint8_t, 3> noteBytes{0x90, 0x3C, 0x64};
inline constexpr std::uint32_t kPackedNote = 0x643C90;

// The least that any sender does: encodes a "/midi" message with that note once and sends the same
// bytes to the devices from `first` on to before `last`, over the sockets that the library uses.
void SendBare(const Bridge& bridge, const MidiAddress& address, std::size_t first,
              std::size_t last);

// As many frames go out to a socket before what has arrived there is read. Beyond that the system
// would keep frames back and join them, and a send would cost less than one that goes out.
inline constexpr int kFramesAtOnce = 8;

// What an action that sends a frame to some devices costs the calling thread each time, on average
// of `slices` times `kFramesAtOnce`. Nobody reads at the devices' ends meanwhile, so no send wakes
// a reader; after each slice everything is read, which does not count.
template <class Action>
Cost CostOfSending(Bridge& bridge, int slices, const Action& action) {
  Cost sum;
  bridge.DrainAll();
  for (int slice = 0; slice < slices; ++slice) {
    const Stamp begin = Stamp::Now();
    for (int i = 0; i < kFramesAtOnce; ++i) action();
    const Stamp end = Stamp::Now();
    sum.Add(begin, end);
    bridge.DrainAll();
  }
  return sum.For(slices * kFramesAtOnce);
}

}  // namespace corvalint::bench
