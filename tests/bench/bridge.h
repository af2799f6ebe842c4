#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bench/frames.h"
#include "bench/loopback.h"

namespace corvalint::bench {

// The library at the counting desk with devices whose companion apps are descriptors in the
// bench's hands. Once for the process; for one thread. Everything that does not go as it must ends
// the program with a line on standard error: a figure of a half-working bridge is worth nothing.
class Bridge {
 public:
  // Installs the tables, starts the service and switches the desktop's endpoints on. `most` is how
  // many devices there will ever be: their connections are made here, so that what an arrival costs
  // is the library's.
  Bridge(std::size_t most, Buffers buffers);

  // Devices arrive until that many are connected.
  void Attach(std::size_t count);
  std::size_t Attached() const { return attached; }

  // The connection of a device. The library's end belongs to the library; bytes that the bench
  // sends there itself go the same way as the library's.
  const Loopback& Link(std::size_t device) const;

  // The device announces a source and waits until its port is there. A destination of the same name
  // belongs to the same port.
  void PublishSource(std::size_t device, const MidiAddress& endpoint);
  void PublishDestination(std::size_t device, const MidiAddress& endpoint);
  // Returns when the library has handled everything that the device has sent.
  void Flush(std::size_t device);

  // Throws away what the devices have been sent.
  void DrainAll();

  std::int32_t KeysId() const { return keysId; }
  std::int32_t OutputId() const { return outputId; }
  std::int32_t SlowOutputId() const { return slowOutputId; }

 private:
  std::size_t attached = 0;
  std::int32_t keysId = 0;
  std::int32_t outputId = 0;
  std::int32_t slowOutputId = 0;
};

// Looks until the condition holds; ends the program with that line when it does not within a
// minute.
void Await(const char* what, const std::function<bool()>& condition);
[[noreturn]] void GiveUp(const std::string& why);

}  // namespace corvalint::bench
