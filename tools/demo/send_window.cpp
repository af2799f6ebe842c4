#include "demo/send_window.h"

#include <algorithm>

namespace corvalint::demo {

bool SendWindow::HasRoom(std::size_t sent, std::size_t received, Time now) {
  if (received > receivedBefore) {
    settled = std::min(sent, settled + received - receivedBefore);
    receivedBefore = received;
    lastProgress = now;
  }
  if (sent - settled < kMostUnderWay) {
    lastProgress = now;
    return true;
  }
  if (now - lastProgress < kPatience) return false;
  settled = sent;
  lastProgress = now;
  return true;
}

}  // namespace corvalint::demo
