#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "device/descriptor.h"
#include "device/frame.h"
#include "device/rate_limiter.h"

namespace corvalint::device {

// How a stream ends: with a TCP reset, or with a regular end after all that was sent.
enum class CutHow { kReset, kFinish };

// What waits to be sent on the current stream, and the manner in which it leaves. Not locked.
class Outgoing {
 public:
  enum class State {
    kEmpty,    // all is sent
    kBlocked,  // the peer takes no more for now
    kDue,      // the rate allows more within a millisecond
    kCut,      // sent up to a chunk after which the stream is to be cut
    kFailed,   // the stream is dead
  };
  struct Progress {
    State state = State::kEmpty;
    std::uint64_t bytes = 0;   // sent by this call
    std::uint64_t frames = 0;  // completed by this call
  };

  // Bytes to send that complete `frames` frames. With `cut` nothing is sent after them.
  void Add(Bytes bytes, std::uint64_t frames, std::optional<CutHow> cut = std::nullopt);
  // At most this many bytes per send; 0 = as many as there are.
  void SetPieceSize(std::size_t bytes) { pieceSize = bytes; }
  void SetRate(std::size_t bytesPerMillisecond, std::int64_t now);

  // Sends what can be sent without waiting.
  Progress Flush(const Descriptor& stream, std::int64_t now);

  bool Empty() const { return chunks.empty(); }
  std::uint64_t Waiting() const { return waiting; }
  // How to cut, after Flush() has said kCut.
  CutHow Cut() const { return cutHow; }
  // Forgets all that waits and gives the number of its bytes.
  std::uint64_t Drop();

 private:
  struct Chunk {
    Bytes bytes;
    std::size_t sent = 0;
    std::uint64_t frames = 0;
    std::optional<CutHow> cut;
  };

  std::deque<Chunk> chunks;
  std::uint64_t waiting = 0;
  std::size_t pieceSize = 0;
  CutHow cutHow = CutHow::kReset;
  RateLimiter limiter;
};

}  // namespace corvalint::device
