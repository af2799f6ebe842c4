#include "bench/bare_sends.h"

#include <sys/socket.h>

namespace corvalint::bench {

void SendBare(const Bridge& bridge, const MidiAddress& address, std::size_t first,
              std::size_t last) {
  std::array<char, 1024> frame;
  const std::size_t size = EncodeMidiFrame(frame.data(), frame.size(), address.name.c_str(),
                                           address.id, 0, noteBytes.data(), noteBytes.size());
  for (std::size_t i = first; i < last; ++i) {
    if (send(bridge.Link(i).library, frame.data(), size, MSG_NOSIGNAL) !=
        static_cast<ssize_t>(size)) {
      GiveUp("a bare send did not take the frame");
    }
  }
}

}  // namespace corvalint::bench
