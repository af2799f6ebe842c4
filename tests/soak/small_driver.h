#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/virtual_midi_api.h"
#include "soak/sightings.h"

namespace corvalint::soak {

// A driver of virtual ports for runs without end, installed for as long as it lives; one at a time.
// It keeps no log and forgets closed ports. A name that is taken is refused, closing waits for the
// port's callbacks, and the use of a closed handle is complained about. Any thread.
class SmallDriver {
 public:
  using Bytes = std::vector<std::uint8_t>;

  SmallDriver();
  ~SmallDriver();
  SmallDriver(const SmallDriver&) = delete;
  SmallDriver& operator=(const SmallDriver&) = delete;

  // A desktop program writes into an open port, `pick` tells which; false when none is open.
  bool Write(std::uint64_t pick, Bytes bytes);
  bool WriteTo(const std::string& name, Bytes bytes);

  // Of the open ports.
  std::vector<std::string> Names() const;
  // What was sent into any port.
  Sightings& Sent() { return sent; }

 private:
  struct Port;
  using PortPointer = std::shared_ptr<Port>;

  static VirtualMidiHandle Create(const char16_t* name, VirtualMidiCallback callback,
                                  std::uintptr_t instance, std::uint32_t maximumSysex,
                                  std::uint32_t flags);
  static std::int32_t Send(VirtualMidiHandle handle, const std::uint8_t* data,
                           std::uint32_t length);
  static void Close(VirtualMidiHandle handle);
  void RunCallback(Port& port, Bytes& bytes);

  mutable std::mutex mutex;
  std::condition_variable callbackEnded;
  std::map<VirtualMidiHandle, PortPointer> ports;
  std::uintptr_t lastHandle = 0;
  Sightings sent;
};

}  // namespace corvalint::soak
