#pragma once

#include <atomic>
#include <cstdint>

namespace corvalint::bench {

// Who wants to know of each message that has reached the driver or an output.
class ArrivalListener {
 public:
  // On the thread that brought the message.
  virtual void Arrived(const std::uint8_t* data, std::uint32_t length) = 0;

 protected:
  ~ArrivalListener() = default;
};

inline std::atomic<ArrivalListener*> arrivalListener{nullptr};

// What every place where a message ends calls, and nothing else.
inline void Arrive(const std::uint8_t* data, std::uint32_t length) {
  if (auto* const listener = arrivalListener.load(std::memory_order_acquire)) {
    listener->Arrived(data, length);
  }
}

}  // namespace corvalint::bench
