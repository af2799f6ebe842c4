#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// Windows multimedia MIDI (winmm): its records and functions under this library's own names, so
// that the code above the seam needs no system header. windows/winmm_api.cpp checks the layouts.

using MidiInHandle = void*;
using MidiOutHandle = void*;
using MidiResult = std::uint32_t;

inline constexpr MidiResult kMidiNoError = 0;
inline constexpr MidiResult kMidiBadDevice = 2;          // MMSYSERR_BADDEVICEID
inline constexpr MidiResult kMidiInvalidHandle = 5;      // MMSYSERR_INVALHANDLE
inline constexpr MidiResult kMidiNoMemory = 7;           // MMSYSERR_NOMEM
inline constexpr MidiResult kMidiInvalidParameter = 11;  // MMSYSERR_INVALPARAM
inline constexpr MidiResult kMidiStillPlaying = 65;      // MIDIERR_STILLPLAYING

inline constexpr std::uint32_t kMidiCallbackNull = 0;
inline constexpr std::uint32_t kMidiCallbackFunction = 0x30000;

inline constexpr std::uint32_t kMidiInData = 0x3C3;       // MIM_DATA
inline constexpr std::uint32_t kMidiInLongData = 0x3C4;   // MIM_LONGDATA
inline constexpr std::uint32_t kMidiInError = 0x3C5;      // MIM_ERROR
inline constexpr std::uint32_t kMidiInLongError = 0x3C6;  // MIM_LONGERROR

#pragma pack(push, 1)

// One block of MIDI bytes on its way through a driver. While it is queued the driver owns it.
struct MidiHeader {
  char* data;
  std::uint32_t bufferLength;
  std::uint32_t bytesRecorded;
  std::uintptr_t user;
  std::uint32_t flags;
  MidiHeader* next;
  std::uintptr_t reserved;
  std::uint32_t offset;
  std::uintptr_t driverReserved[8];
};

struct MidiInCaps {
  std::uint16_t manufacturer;
  std::uint16_t product;
  std::uint32_t driverVersion;
  char name[32];
  std::uint32_t support;
};

struct MidiOutCaps {
  std::uint16_t manufacturer;
  std::uint16_t product;
  std::uint32_t driverVersion;
  char name[32];
  std::uint16_t technology;
  std::uint16_t voices;
  std::uint16_t notes;
  std::uint16_t channelMask;
  std::uint32_t support;
};

#pragma pack(pop)

static_assert(sizeof(MidiHeader) == 112 && sizeof(MidiInCaps) == 44 && sizeof(MidiOutCaps) == 52);

// Called on a thread of winmm or of a driver for what an open input device receives, and during
// midiInReset for the buffers that it gives back. No exception may leave it.
using MidiInCallback = void (*)(MidiInHandle handle, std::uint32_t message, std::uintptr_t instance,
                                std::uintptr_t parameter1, std::uintptr_t parameter2);

// The functions used, with the arguments of the real ones. Without winmm there are no devices. Any
// thread; a result is kMidiNoError or one of winmm's codes, and a handle belongs to whoever opened
// it. A close or reset waits for a callback in progress: hold nothing that the callback takes.
struct WinMidiApi {
  std::uint32_t (*midiInGetNumDevs)();
  MidiResult (*midiInGetDevCapsA)(std::uintptr_t device, MidiInCaps* caps, std::uint32_t size);
  MidiResult (*midiInOpen)(MidiInHandle* handle, std::uint32_t device, std::uintptr_t callback,
                           std::uintptr_t instance, std::uint32_t flags);
  MidiResult (*midiInClose)(MidiInHandle handle);
  MidiResult (*midiInPrepareHeader)(MidiInHandle handle, MidiHeader* header, std::uint32_t size);
  MidiResult (*midiInUnprepareHeader)(MidiInHandle handle, MidiHeader* header, std::uint32_t size);
  MidiResult (*midiInAddBuffer)(MidiInHandle handle, MidiHeader* header, std::uint32_t size);
  MidiResult (*midiInStart)(MidiInHandle handle);
  MidiResult (*midiInStop)(MidiInHandle handle);
  MidiResult (*midiInReset)(MidiInHandle handle);

  std::uint32_t (*midiOutGetNumDevs)();
  MidiResult (*midiOutGetDevCapsA)(std::uintptr_t device, MidiOutCaps* caps, std::uint32_t size);
  MidiResult (*midiOutOpen)(MidiOutHandle* handle, std::uint32_t device, std::uintptr_t callback,
                            std::uintptr_t instance, std::uint32_t flags);
  MidiResult (*midiOutClose)(MidiOutHandle handle);
  MidiResult (*midiOutPrepareHeader)(MidiOutHandle handle, MidiHeader* header, std::uint32_t size);
  MidiResult (*midiOutUnprepareHeader)(MidiOutHandle handle, MidiHeader* header,
                                       std::uint32_t size);
  MidiResult (*midiOutLongMsg)(MidiOutHandle handle, MidiHeader* header, std::uint32_t size);
  MidiResult (*midiOutReset)(MidiOutHandle handle);

  static const WinMidiApi& System();
};

}  // namespace corvalint
