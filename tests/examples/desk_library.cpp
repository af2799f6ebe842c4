// The native library at a desk with some MIDI devices, so that examples in other languages have
// something to see and to switch. They are there from the moment at which the library is loaded.
#include <chrono>
#include <thread>

#include "soak/small_winmm.h"

namespace {

// Whoever reads the lists right after the start finds them empty, as with slow drivers.
void DelayTheFirstScan() {
  static const bool delayed = [] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return true;
  }();
  static_cast<void>(delayed);
}

// Names natively are UTF-8, the ANSI code page of this side.
struct SmallDesk {
  SmallDesk()
      : winmm([] {
          DelayTheFirstScan();
          return corvalint::soak::SmallWinmm::Names();
        }) {
    winmm.Plug({"Kl\xC3\xA4vier", "Keys", "Twin"}, {"Synth", "Twin"});
  }
  corvalint::soak::SmallWinmm winmm;
};

// Never destroyed: the library's threads use it until the process ends.
const auto* const desk = new SmallDesk;

}  // namespace
