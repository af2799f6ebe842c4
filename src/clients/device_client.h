#pragma once

#include <cstdint>

#include "clients/borrow_gate.h"
#include "clients/endpoint_owner.h"
#include "clients/frame.h"

namespace corvalint {

// A connected device as the senders see it. Whoever uses a client from the list borrows it for that
// use (ClientWalk); a client ends only when nobody borrows it any more.
class DeviceClient {
 public:
  // Writes one frame with `size` bytes of payload (1 to 131072) to the device's stream. A frame
  // goes out whole or not at all; never blocks. Returns the bytes handed over, header included, or
  // -1 when the frame was dropped. Any thread.
  virtual int SendFramed(const void* data, std::uint32_t size) = 0;
  // The same for a frame that is whole already, so that what goes to many devices is put together
  // once.
  virtual int SendFrame(const Frame& frame) {
    return SendFramed(frame.Payload(), frame.payloadSize);
  }

  // The device's manager of published endpoints. It lives until the process ends.
  virtual EndpointOwner& Owner() = 0;

  BorrowGate gate;

 protected:
  ~DeviceClient() = default;
};

}  // namespace corvalint
