#pragma once

#include <cstdint>
#include <string>

#include "ports/midi_delegates.h"
#include "winmidi/midi_delegate.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {

// Turns what happens at the desktop's endpoints and published ports into messages to the devices.
// Does nothing while no server exists. Lives until the process ends; any thread.
class MidiLinkController final : public ExternalMidiManagerDelegate, public MidiDelegate {
 public:
  explicit MidiLinkController(MidiEndpointRegistry& midiRegistry) : registry(midiRegistry) {}

  // "/midi" to every device; nothing for a length of 0.
  void MidiReceived(const std::uint8_t* data, std::int32_t length, const std::string& name,
                    std::int32_t uniqueId, std::uint64_t timestamp) override;
  // The added ones are announced only if they are on, the removed ones always.
  void SourceAdded(const MidiEndpoint& source) override;
  void SourceRemoved(const MidiEndpoint& source) override;
  void DestinationAdded(const MidiEndpoint& destination) override;
  void DestinationRemoved(const MidiEndpoint& destination) override;

  // "/midi" to the devices that own the published port.
  void ExternalMidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& name,
                            std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                            const std::string& deviceKey) override;

  MidiEndpointRegistry& Registry() { return registry; }

 private:
  // Whose delegate it is. Its own operations need nothing of it.
  MidiEndpointRegistry& registry;
};

// The one controller. Its first use makes it, makes it the registry's delegate and announces the
// endpoints that are open by then. The device library's callback thread.
MidiLinkController& GetMidiLinkController();

}  // namespace corvalint
