#pragma once

#include <thread>

#include "bench/arrivals.h"

namespace corvalint::bench {

// The least that a reader of a device's stream can do: a thread that receives up to 64 KiB at once,
// cuts the frames out of its buffer and reads the address and all four arguments of each "/midi"
// message with the OSC library, unchecked and with no place to bring it to.
class BareReader {
 public:
  // Reads that socket until its other end is closed, and tells the listener of each message.
  BareReader(int socket, ArrivalListener& listener);
  ~BareReader();
  BareReader(const BareReader&) = delete;
  BareReader& operator=(const BareReader&) = delete;

 private:
  std::thread thread;
};

}  // namespace corvalint::bench
