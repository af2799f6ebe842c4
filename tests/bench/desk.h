#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/virtual_midi_api.h"

namespace corvalint::bench {

// A desktop that does as little as it can: one MIDI input, an output that plays at once, one that
// plays slowly, and a driver of virtual ports. Tables at the seam whose functions only count, so
// that what is measured is the library.
inline constexpr const char* kKeys = "Bench keyboard, 61 keys";
inline constexpr const char* kOutput = "Bench synthesizer, in";
inline constexpr const char* kSlowOutput = "Slow synthesizer, in";

// Installs the tables for the rest of the process.
void InstallDesk();

// Plays a short message into the input that is open, as winmm does.
void PlayShort(std::uint32_t packed);

// How many looks a block at the slow output takes until it was played.
inline constexpr int kSlowLooks = 20000;

// Lets a block at the slow output end now.
void EndSlowBlock();

// A published port as the driver knows it.
struct OpenPort {
  VirtualMidiHandle handle = nullptr;
  VirtualMidiCallback callback = nullptr;
  std::uintptr_t instance = 0;

  // A desktop program writes into the port.
  void Write(std::uint8_t* data, std::uint32_t length) const {
    callback(handle, data, length, instance);
  }
};

// The port of that name; its handle is null when there is none.
OpenPort PortNamed(const std::string& name);

}  // namespace corvalint::bench
