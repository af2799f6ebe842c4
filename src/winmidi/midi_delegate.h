#pragma once

#include <cstdint>
#include <string>

#include "winmidi/midi_endpoint.h"

namespace corvalint {

// Receives what happens at the desktop's MIDI endpoints. No lock is held during a call but the
// device lock, and the server's notification lock while AnnounceOpenEndpoints tells what is open.
class MidiDelegate {
 public:
  // `length` bytes that an open source received, on winmm's callback thread; `timestamp` is host
  // time in nanoseconds. A length of 0 is an empty buffer that came back.
  virtual void MidiReceived(const std::uint8_t* data, std::int32_t length, const std::string& name,
                            std::int32_t uniqueId, std::uint64_t timestamp) = 0;
  virtual void SourceAdded(const MidiEndpoint& source) = 0;
  virtual void SourceRemoved(const MidiEndpoint& source) = 0;
  virtual void DestinationAdded(const MidiEndpoint& destination) = 0;
  virtual void DestinationRemoved(const MidiEndpoint& destination) = 0;

 protected:
  ~MidiDelegate() = default;
};

}  // namespace corvalint
