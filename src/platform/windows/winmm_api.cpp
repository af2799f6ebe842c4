#include "platform/winmm_api.h"

#include <cstddef>

#include "platform/windows/modules.h"
#include "platform/windows/system_headers.h"

#include <mmsystem.h>

namespace corvalint {
namespace {

// The records above the seam are the system's, field by field.
#define CORVALINT_SAME_FIELD(own, field, native, nativeField)            \
  static_assert(offsetof(own, field) == offsetof(native, nativeField) && \
                sizeof(own::field) == sizeof(native::nativeField))

static_assert(sizeof(MidiHeader) == sizeof(MIDIHDR));
CORVALINT_SAME_FIELD(MidiHeader, data, MIDIHDR, lpData);
CORVALINT_SAME_FIELD(MidiHeader, bufferLength, MIDIHDR, dwBufferLength);
CORVALINT_SAME_FIELD(MidiHeader, bytesRecorded, MIDIHDR, dwBytesRecorded);
CORVALINT_SAME_FIELD(MidiHeader, user, MIDIHDR, dwUser);
CORVALINT_SAME_FIELD(MidiHeader, flags, MIDIHDR, dwFlags);
CORVALINT_SAME_FIELD(MidiHeader, next, MIDIHDR, lpNext);
CORVALINT_SAME_FIELD(MidiHeader, reserved, MIDIHDR, reserved);
CORVALINT_SAME_FIELD(MidiHeader, offset, MIDIHDR, dwOffset);
CORVALINT_SAME_FIELD(MidiHeader, driverReserved, MIDIHDR, dwReserved);

static_assert(sizeof(MidiInCaps) == sizeof(MIDIINCAPSA));
CORVALINT_SAME_FIELD(MidiInCaps, manufacturer, MIDIINCAPSA, wMid);
CORVALINT_SAME_FIELD(MidiInCaps, product, MIDIINCAPSA, wPid);
CORVALINT_SAME_FIELD(MidiInCaps, driverVersion, MIDIINCAPSA, vDriverVersion);
CORVALINT_SAME_FIELD(MidiInCaps, name, MIDIINCAPSA, szPname);
CORVALINT_SAME_FIELD(MidiInCaps, support, MIDIINCAPSA, dwSupport);

static_assert(sizeof(MidiOutCaps) == sizeof(MIDIOUTCAPSA));
CORVALINT_SAME_FIELD(MidiOutCaps, manufacturer, MIDIOUTCAPSA, wMid);
CORVALINT_SAME_FIELD(MidiOutCaps, product, MIDIOUTCAPSA, wPid);
CORVALINT_SAME_FIELD(MidiOutCaps, driverVersion, MIDIOUTCAPSA, vDriverVersion);
CORVALINT_SAME_FIELD(MidiOutCaps, name, MIDIOUTCAPSA, szPname);
CORVALINT_SAME_FIELD(MidiOutCaps, technology, MIDIOUTCAPSA, wTechnology);
CORVALINT_SAME_FIELD(MidiOutCaps, voices, MIDIOUTCAPSA, wVoices);
CORVALINT_SAME_FIELD(MidiOutCaps, notes, MIDIOUTCAPSA, wNotes);
CORVALINT_SAME_FIELD(MidiOutCaps, channelMask, MIDIOUTCAPSA, wChannelMask);
CORVALINT_SAME_FIELD(MidiOutCaps, support, MIDIOUTCAPSA, dwSupport);

#undef CORVALINT_SAME_FIELD

static_assert(kMidiNoError == MMSYSERR_NOERROR && kMidiBadDevice == MMSYSERR_BADDEVICEID &&
              kMidiInvalidHandle == MMSYSERR_INVALHANDLE && kMidiNoMemory == MMSYSERR_NOMEM &&
              kMidiInvalidParameter == MMSYSERR_INVALPARAM &&
              kMidiStillPlaying == MIDIERR_STILLPLAYING);
static_assert(kMidiCallbackNull == CALLBACK_NULL && kMidiCallbackFunction == CALLBACK_FUNCTION);
static_assert(kMidiInData == MIM_DATA && kMidiInLongData == MIM_LONGDATA &&
              kMidiInError == MIM_ERROR && kMidiInLongError == MIM_LONGERROR);

HMIDIIN In(MidiInHandle handle) { return static_cast<HMIDIIN>(handle); }

HMIDIOUT Out(MidiOutHandle handle) { return static_cast<HMIDIOUT>(handle); }

MIDIHDR* Native(MidiHeader* header) { return reinterpret_cast<MIDIHDR*>(header); }

std::uint32_t InCount() { return midiInGetNumDevs(); }

MidiResult InCaps(std::uintptr_t device, MidiInCaps* caps, std::uint32_t size) {
  return midiInGetDevCapsA(device, reinterpret_cast<MIDIINCAPSA*>(caps), size);
}

MidiResult InOpen(MidiInHandle* handle, std::uint32_t device, std::uintptr_t callback,
                  std::uintptr_t instance, std::uint32_t flags) {
  return midiInOpen(reinterpret_cast<HMIDIIN*>(handle), device, callback, instance, flags);
}

MidiResult InClose(MidiInHandle handle) { return midiInClose(In(handle)); }

MidiResult InPrepare(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
  return midiInPrepareHeader(In(handle), Native(header), size);
}

MidiResult InUnprepare(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
  return midiInUnprepareHeader(In(handle), Native(header), size);
}

MidiResult InAddBuffer(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
  return midiInAddBuffer(In(handle), Native(header), size);
}

MidiResult InStart(MidiInHandle handle) { return midiInStart(In(handle)); }

MidiResult InStop(MidiInHandle handle) { return midiInStop(In(handle)); }

MidiResult InReset(MidiInHandle handle) { return midiInReset(In(handle)); }

std::uint32_t OutCount() { return midiOutGetNumDevs(); }

MidiResult OutCaps(std::uintptr_t device, MidiOutCaps* caps, std::uint32_t size) {
  return midiOutGetDevCapsA(device, reinterpret_cast<MIDIOUTCAPSA*>(caps), size);
}

MidiResult OutOpen(MidiOutHandle* handle, std::uint32_t device, std::uintptr_t callback,
                   std::uintptr_t instance, std::uint32_t flags) {
  return midiOutOpen(reinterpret_cast<HMIDIOUT*>(handle), device, callback, instance, flags);
}

MidiResult OutClose(MidiOutHandle handle) { return midiOutClose(Out(handle)); }

MidiResult OutPrepare(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
  return midiOutPrepareHeader(Out(handle), Native(header), size);
}

MidiResult OutUnprepare(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
  return midiOutUnprepareHeader(Out(handle), Native(header), size);
}

MidiResult OutLongMessage(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
  return midiOutLongMsg(Out(handle), Native(header), size);
}

// Looked up when it is wanted, which is rare: no load of this library may fail for it.
MidiResult OutReset(MidiOutHandle handle) {
  MMRESULT(WINAPI * reset)(HMIDIOUT) = nullptr;
  return Bind(FindModule("winmm.dll"), "midiOutReset", reset) ? reset(Out(handle))
                                                              : kMidiInvalidHandle;
}

}  // namespace

const WinMidiApi& WinMidiApi::System() {
  static constexpr WinMidiApi table{
      .midiInGetNumDevs = InCount,
      .midiInGetDevCapsA = InCaps,
      .midiInOpen = InOpen,
      .midiInClose = InClose,
      .midiInPrepareHeader = InPrepare,
      .midiInUnprepareHeader = InUnprepare,
      .midiInAddBuffer = InAddBuffer,
      .midiInStart = InStart,
      .midiInStop = InStop,
      .midiInReset = InReset,
      .midiOutGetNumDevs = OutCount,
      .midiOutGetDevCapsA = OutCaps,
      .midiOutOpen = OutOpen,
      .midiOutClose = OutClose,
      .midiOutPrepareHeader = OutPrepare,
      .midiOutUnprepareHeader = OutUnprepare,
      .midiOutLongMsg = OutLongMessage,
      .midiOutReset = OutReset,
  };
  return table;
}

}  // namespace corvalint
