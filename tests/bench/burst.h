#pragma once

#include <cstddef>
#include <cstdint>
#include <semaphore>
#include <vector>

#include "bench/arrivals.h"
#include "bench/stamp.h"

namespace corvalint::bench {

// Measures a thread that handles a burst of messages. The thread is held at the first message until
// the burst has been written behind it; what counts is from there to the last message. So nothing
// of it is waiting, and the time that the thread has computed is what the messages cost.
class Burst final : public ArrivalListener {
 public:
  Burst() = default;
  Burst(const Burst&) = delete;
  Burst& operator=(const Burst&) = delete;

  // On the measured thread, once for each message.
  void Arrived(const std::uint8_t* data, std::uint32_t length) override;

  // Sends `gate`, one frame, then a burst of `count` frames that stand in `burst`, both into
  // `socket`, whose other end the measured thread reads. The cost of each of the `count`, of which
  // the last one and `arrivals` in all are messages that arrive.
  Cost Run(int socket, const std::vector<char>& gate, const std::vector<char>& burst,
           std::size_t count, std::size_t arrivals);
  Cost Run(int socket, const std::vector<char>& gate, const std::vector<char>& burst,
           std::size_t count) {
    return Run(socket, gate, burst, count, count);
  }

 private:
  std::size_t seen = 0;
  std::size_t expected = 0;
  Stamp begin;
  Stamp end;
  std::binary_semaphore atGate{0};
  std::binary_semaphore open{0};
  std::binary_semaphore done{0};
};

}  // namespace corvalint::bench
