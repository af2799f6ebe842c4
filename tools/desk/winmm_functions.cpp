// The functions that the winmm stand-in exports, under the names of the real ones behind "Desk".
#include <cstring>

#include "call_book.h"
#include "midi_table.h"
#include "outbox.h"
#include "stand_in.h"

namespace {

using corvalint::desk::Call;
using corvalint::desk::CallBook;
using corvalint::desk::MidiTable;
using corvalint::desk::Number;
using corvalint::desk::Outbox;

// A closed handle is freed memory to the real library.
MMRESULT NoSuchHandle(const char* function, std::uintptr_t handle) {
  if (MidiTable::Get().EverOpened(handle)) {
    Outbox::Get().Violation(std::string(function) + " on a closed handle");
  }
  return MMSYSERR_INVALHANDLE;
}

// The frame of every call on a handle: script, handle look-up, unplugged device, then the work.
template <typename Handle, typename Work>
MMRESULT OnHandle(const char* function, Handle handle, std::uint64_t second, Work work) {
  Call call(function, {Number(handle), second});
  if (call.Scripted()) return call.Result<MMRESULT>();
  const auto opened = MidiTable::Get().Find(handle);
  if (!opened) {
    return call.Done(NoSuchHandle(function, reinterpret_cast<std::uintptr_t>(handle)));
  }
  if (opened->device->gone && opened->device->resultWhenGone != MMSYSERR_NOERROR) {
    return call.Done(opened->device->resultWhenGone.load());
  }
  return call.Done(static_cast<MMRESULT>(work(*opened)));
}

void CopyName(char* target, const std::string& name) {
  std::memcpy(target, name.data(), std::min<std::size_t>(name.size(), MAXPNAMELEN - 1));
}

void CopyName(wchar_t* target, const std::wstring& name) {
  std::memcpy(target, name.data(),
              std::min<std::size_t>(name.size(), MAXPNAMELEN - 1) * sizeof(wchar_t));
}

template <typename Caps>
MMRESULT Hand(const Caps& caps, Caps* target, UINT size) {
  if (target == nullptr) return MMSYSERR_INVALPARAM;
  std::memcpy(target, &caps, std::min<std::size_t>(size, sizeof(Caps)));
  return MMSYSERR_NOERROR;
}

template <typename Caps, typename Name>
MMRESULT InputCaps(const char* function, UINT_PTR index, Caps* target, UINT size, Name name) {
  Call call(function, {index});
  if (call.Scripted()) return call.Result<MMRESULT>();
  const auto device = MidiTable::Get().InputAt(index);
  if (!device) return call.Done<MMRESULT>(MMSYSERR_BADDEVICEID);
  Caps caps = {};
  caps.vDriverVersion = 0x0100;
  CopyName(caps.szPname, name(*device));
  return call.Done(Hand(caps, target, size));
}

template <typename Caps, typename Name>
MMRESULT OutputCaps(const char* function, UINT_PTR index, Caps* target, UINT size, Name name) {
  Call call(function, {index});
  if (call.Scripted()) return call.Result<MMRESULT>();
  const auto device = MidiTable::Get().OutputAt(index);
  if (!device) return call.Done<MMRESULT>(MMSYSERR_BADDEVICEID);
  Caps caps = {};
  caps.vDriverVersion = 0x0100;
  caps.wTechnology = MOD_MIDIPORT;
  caps.wChannelMask = 0xFFFF;
  CopyName(caps.szPname, name(*device));
  return call.Done(Hand(caps, target, size));
}

constexpr auto kName = [](const auto& device) -> const auto& { return device.name; };
constexpr auto kWideName = [](const auto& device) -> const auto& { return device.wideName; };

}  // namespace

DESK_EXPORT UINT WINAPI DeskMidiInGetNumDevs() {
  Call call("midiInGetNumDevs", {});
  if (call.Scripted()) return call.Result<UINT>();
  return call.Done(static_cast<UINT>(MidiTable::Get().InputCount()));
}

DESK_EXPORT UINT WINAPI DeskMidiOutGetNumDevs() {
  Call call("midiOutGetNumDevs", {});
  if (call.Scripted()) return call.Result<UINT>();
  return call.Done(static_cast<UINT>(MidiTable::Get().OutputCount()));
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInGetDevCapsA(UINT_PTR index, MIDIINCAPSA* caps, UINT size) {
  return InputCaps("midiInGetDevCapsA", index, caps, size, kName);
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInGetDevCapsW(UINT_PTR index, MIDIINCAPSW* caps, UINT size) {
  return InputCaps("midiInGetDevCapsW", index, caps, size, kWideName);
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutGetDevCapsA(UINT_PTR index, MIDIOUTCAPSA* caps, UINT size) {
  return OutputCaps("midiOutGetDevCapsA", index, caps, size, kName);
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutGetDevCapsW(UINT_PTR index, MIDIOUTCAPSW* caps, UINT size) {
  return OutputCaps("midiOutGetDevCapsW", index, caps, size, kWideName);
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInOpen(HMIDIIN* handle, UINT index, DWORD_PTR callback,
                                           DWORD_PTR instance, DWORD flags) {
  Call call("midiInOpen", {index, flags});
  if (call.Scripted()) return call.Result<MMRESULT>();
  if (handle == nullptr) return call.Done<MMRESULT>(MMSYSERR_INVALPARAM);
  const DWORD kind = flags & CALLBACK_TYPEMASK;
  if (kind != CALLBACK_NULL && kind != CALLBACK_FUNCTION) {
    return call.Done<MMRESULT>(MMSYSERR_NOTSUPPORTED);
  }
  const auto device = MidiTable::Get().InputAt(index);
  if (!device) return call.Done<MMRESULT>(MMSYSERR_BADDEVICEID);
  const auto opened =
      MidiTable::Get().OpenInputHandle(device, kind == CALLBACK_FUNCTION ? callback : 0, instance);
  *handle = opened->handle;
  Outbox::Get().Event("input " + std::to_string(device->id) + " open");
  opened->Announce(MIM_OPEN);
  return call.Done<MMRESULT>(MMSYSERR_NOERROR);
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInClose(HMIDIIN handle) {
  return OnHandle("midiInClose", handle, 0, [handle](auto& opened) -> MMRESULT {
    const MMRESULT result = opened.Close();
    if (result != MMSYSERR_NOERROR || !MidiTable::Get().Forget(handle)) return result;
    opened.Announce(MIM_CLOSE);
    Outbox::Get().Event("input " + std::to_string(opened.device->id) + " closed");
    return result;
  });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInPrepareHeader(HMIDIIN handle, MIDIHDR* header, UINT size) {
  return OnHandle("midiInPrepareHeader", handle, Number(header),
                  [=](auto& opened) { return opened.Prepare(header, size); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInUnprepareHeader(HMIDIIN handle, MIDIHDR* header, UINT size) {
  return OnHandle("midiInUnprepareHeader", handle, Number(header),
                  [=](auto& opened) { return opened.Unprepare(header, size); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInAddBuffer(HMIDIIN handle, MIDIHDR* header, UINT size) {
  return OnHandle("midiInAddBuffer", handle, Number(header),
                  [=](auto& opened) { return opened.Add(header, size); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInStart(HMIDIIN handle) {
  return OnHandle("midiInStart", handle, 0, [](auto& opened) { return opened.Start(); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInStop(HMIDIIN handle) {
  return OnHandle("midiInStop", handle, 0, [](auto& opened) { return opened.Stop(); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiInReset(HMIDIIN handle) {
  return OnHandle("midiInReset", handle, 0, [](auto& opened) { return opened.Reset(); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutOpen(HMIDIOUT* handle, UINT index, DWORD_PTR, DWORD_PTR,
                                            DWORD flags) {
  Call call("midiOutOpen", {index, flags});
  if (call.Scripted()) return call.Result<MMRESULT>();
  if (handle == nullptr) return call.Done<MMRESULT>(MMSYSERR_INVALPARAM);
  if ((flags & CALLBACK_TYPEMASK) != CALLBACK_NULL) {
    return call.Done<MMRESULT>(MMSYSERR_NOTSUPPORTED);
  }
  const auto device = MidiTable::Get().OutputAt(index);
  if (!device) return call.Done<MMRESULT>(MMSYSERR_BADDEVICEID);
  *handle = MidiTable::Get().OpenOutputHandle(device)->handle;
  Outbox::Get().Event("output " + std::to_string(device->id) + " open");
  return call.Done<MMRESULT>(MMSYSERR_NOERROR);
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutClose(HMIDIOUT handle) {
  return OnHandle("midiOutClose", handle, 0, [handle](auto& opened) -> MMRESULT {
    const MMRESULT result = opened.Close();
    if (result != MMSYSERR_NOERROR || !MidiTable::Get().Forget(handle)) return result;
    Outbox::Get().Event("output " + std::to_string(opened.device->id) + " closed");
    return result;
  });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutPrepareHeader(HMIDIOUT handle, MIDIHDR* header, UINT size) {
  return OnHandle("midiOutPrepareHeader", handle, Number(header),
                  [=](auto& opened) { return opened.Prepare(header, size); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutUnprepareHeader(HMIDIOUT handle, MIDIHDR* header,
                                                       UINT size) {
  return OnHandle("midiOutUnprepareHeader", handle, Number(header),
                  [=](auto& opened) { return opened.Unprepare(header, size); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutLongMsg(HMIDIOUT handle, MIDIHDR* header, UINT size) {
  return OnHandle("midiOutLongMsg", handle, Number(header),
                  [=](auto& opened) { return opened.Long(header, size); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutShortMsg(HMIDIOUT handle, DWORD message) {
  return OnHandle("midiOutShortMsg", handle, message,
                  [=](auto& opened) { return opened.Short(message); });
}

DESK_EXPORT MMRESULT WINAPI DeskMidiOutReset(HMIDIOUT handle) {
  return OnHandle("midiOutReset", handle, 0, [](auto& opened) { return opened.Reset(); });
}

// The timer functions never wait for the test: a library may call them while it is being loaded.
DESK_EXPORT MMRESULT WINAPI DeskTimeBeginPeriod(UINT period) {
  CallBook::Get().Note("timeBeginPeriod", period);
  return period == 0 ? TIMERR_NOCANDO : TIMERR_NOERROR;
}

DESK_EXPORT MMRESULT WINAPI DeskTimeEndPeriod(UINT period) {
  CallBook::Get().Note("timeEndPeriod", period);
  return period == 0 ? TIMERR_NOCANDO : TIMERR_NOERROR;
}

DESK_EXPORT DWORD WINAPI DeskTimeGetTime() { return GetTickCount(); }
