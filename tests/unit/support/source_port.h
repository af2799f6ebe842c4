#pragma once

#include <cstdint>

#include "ports/external_midi_manager.h"

namespace corvalint::test {

// Sends as the device's thread does: true when a published port has a source of that id.
inline bool SendToSourcePort(ExternalMidiManager& manager, const std::uint8_t* data,
                             std::uint32_t count, std::uint32_t id) {
  const SourcePort source = manager.SourcePortWithId(id);
  if (source) source.Send(data, count);
  return static_cast<bool>(source);
}

}  // namespace corvalint::test
