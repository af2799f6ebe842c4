#include "device/outgoing.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace corvalint::device {

void Outgoing::Add(Bytes bytes, std::uint64_t frames, std::optional<CutHow> cut) {
  waiting += bytes.size();
  chunks.push_back({std::move(bytes), 0, frames, cut});
}

void Outgoing::SetRate(std::size_t bytesPerMillisecond, std::int64_t now) {
  limiter.SetRate(bytesPerMillisecond, now);
}

Outgoing::Progress Outgoing::Flush(const Descriptor& stream, std::int64_t now) {
  Progress progress;
  while (!chunks.empty()) {
    Chunk& chunk = chunks.front();
    if (chunk.sent < chunk.bytes.size()) {
      std::size_t piece = std::min(chunk.bytes.size() - chunk.sent, limiter.Allowed(now));
      if (pieceSize > 0) piece = std::min(piece, pieceSize);
      if (piece == 0) {
        progress.state = State::kDue;
        return progress;
      }
      const ssize_t sent =
          ::send(stream.Get(), chunk.bytes.data() + chunk.sent, piece, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0) {
        if (errno == EINTR) continue;
        progress.state = errno == EAGAIN ? State::kBlocked : State::kFailed;
        return progress;
      }
      const auto count = static_cast<std::size_t>(sent);
      limiter.Take(count);
      chunk.sent += count;
      waiting -= count;
      progress.bytes += count;
      if (chunk.sent < chunk.bytes.size()) continue;
    }
    progress.frames += chunk.frames;
    const std::optional<CutHow> cut = chunk.cut;
    chunks.pop_front();
    if (cut) {
      cutHow = *cut;
      progress.state = State::kCut;
      return progress;
    }
  }
  progress.state = State::kEmpty;
  return progress;
}

std::uint64_t Outgoing::Drop() {
  chunks.clear();
  return std::exchange(waiting, 0);
}

}  // namespace corvalint::device
