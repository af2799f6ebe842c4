// The native library at a desk with some MIDI devices, so that examples in other languages have
// something to see and to switch. They are there from the moment at which the library is loaded.
#include "soak/small_winmm.h"

namespace {

// Names natively are UTF-8, the ANSI code page of this side.
struct SmallDesk {
  SmallDesk() : winmm([] { return corvalint::soak::SmallWinmm::Names(); }) {
    winmm.Plug({"Kl\xC3\xA4vier", "Keys"}, {"Synth"});
  }
  corvalint::soak::SmallWinmm winmm;
};

// Never destroyed: the library's threads use it until the process ends.
const auto* const desk = new SmallDesk;

}  // namespace
