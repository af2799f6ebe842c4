#pragma once

#include <cstdint>
#include <string>

namespace corvalint {

// Receives MIDI that a desktop program wrote into a published port, on the driver's own thread.
class VirtualMidiDestinationDelegate {
 public:
  // `data` holds `count` bytes of whole MIDI messages for the duration of the call. `id` is the
  // device's unique id of the endpoint, `secondWord` goes with it, is always 0 and read by nobody.
  // `timestamp` is host time in nanoseconds, `deviceKey` names the device that announced the
  // endpoint.
  virtual void MidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& name,
                            std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                            const std::string& deviceKey) = 0;

 protected:
  ~VirtualMidiDestinationDelegate() = default;
};

// Receives the same from a device's manager of published endpoints, to pass it on to the device.
class ExternalMidiManagerDelegate {
 public:
  virtual void ExternalMidiReceived(const std::uint8_t* data, std::uint32_t count,
                                    const std::string& name, std::uint32_t id,
                                    std::uint32_t secondWord, std::int64_t timestamp,
                                    const std::string& deviceKey) = 0;

 protected:
  ~ExternalMidiManagerDelegate() = default;
};

}  // namespace corvalint
