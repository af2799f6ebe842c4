#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// The virtual MIDI port driver (teVirtualMIDI64.dll).

using VirtualMidiHandle = void*;

// Called on the driver's own thread with bytes that a desktop program wrote into the port; `data`
// is valid during the call. No exception may leave it.
using VirtualMidiCallback = void (*)(VirtualMidiHandle port, std::uint8_t* data,
                                     std::uint32_t length, std::uintptr_t instance);

// The driver then parses what it receives, so that the callback gets whole MIDI messages.
inline constexpr std::uint32_t kVirtualMidiParseReceived = 1;

// The functions used, with the arguments of the real ones. Where the driver is missing, no port can
// be created and nothing is sent. Any thread; a port belongs to whoever made it, who closes it
// once.
struct VirtualMidiApi {
  // `name` ends in a zero unit. Null when the port could not be made, e.g. because its name is
  // taken.
  VirtualMidiHandle (*virtualMIDICreatePortEx2)(const char16_t* name, VirtualMidiCallback callback,
                                                std::uintptr_t instance,
                                                std::uint32_t maxSysexLength, std::uint32_t flags);
  // Non-zero when the driver took the bytes.
  std::int32_t (*virtualMIDISendData)(VirtualMidiHandle port, const std::uint8_t* data,
                                      std::uint32_t length);
  // Waits for a callback in progress; hold nothing that the callback takes.
  void (*virtualMIDIClosePort)(VirtualMidiHandle port);

  static const VirtualMidiApi& System();
};

}  // namespace corvalint
