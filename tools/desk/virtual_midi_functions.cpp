// The functions that the virtual MIDI driver's stand-in exports, behind "Desk".
#include "call_book.h"
#include "clock.h"
#include "outbox.h"
#include "stand_in.h"
#include "virtual_port.h"
#include "wide_text.h"

namespace {

using corvalint::desk::Call;
using corvalint::desk::MidiTable;
using corvalint::desk::Number;
using corvalint::desk::Outbox;
using corvalint::desk::PortTable;
using corvalint::desk::VirtualPort;

void BadPort(const char* function, const VirtualPort* port) {
  // A closed port is freed memory to the real driver.
  if (PortTable::Get().Existed(port)) {
    Outbox::Get().Violation(std::string(function) + " on a closed port");
  }
  SetLastError(ERROR_INVALID_HANDLE);
}

}  // namespace

DESK_EXPORT void* WINAPI DeskVirtualMidiCreatePortEx2(LPCWSTR name, VirtualPort::Callback callback,
                                                      DWORD_PTR instance, DWORD longestSysex,
                                                      DWORD flags) {
  const std::wstring text = name == nullptr ? L"" : name;
  Call call("virtualMIDICreatePortEx2",
            {Number(reinterpret_cast<void*>(callback)), instance, longestSysex, flags},
            corvalint::desk::HexOfWide(text));
  if (call.Scripted()) {
    SetLastError(call.Result<DWORD>());
    return nullptr;
  }
  VirtualPort* port = nullptr;
  DWORD error = ERROR_INVALID_NAME;
  if (!text.empty()) {
    port = PortTable::Get().Create(text, callback, instance);
    error = ERROR_ALIAS_EXISTS;
  }
  call.Done(static_cast<std::int64_t>(Number(port)));
  if (port == nullptr) SetLastError(error);
  return port;
}

DESK_EXPORT BOOL WINAPI DeskVirtualMidiSendData(void* handle, BYTE* data, DWORD length) {
  auto* port = static_cast<VirtualPort*>(handle);
  Call call("virtualMIDISendData", {Number(handle), length});
  if (call.Scripted()) return call.Result<BOOL>();
  if (!PortTable::Get().IsOpen(port)) {
    call.Done(FALSE);
    BadPort("virtualMIDISendData", port);
    return FALSE;
  }
  if (data == nullptr || length == 0) {
    call.Done(FALSE);
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  ++port->messages;
  port->bytes += length;
  Outbox::Get().Recorded('v', port->id, corvalint::desk::NowNs(), data, length);
  MidiTable::Get().Feed(port->input, data, length);
  return call.Done(TRUE);
}

DESK_EXPORT void WINAPI DeskVirtualMidiClosePort(void* handle) {
  auto* port = static_cast<VirtualPort*>(handle);
  Call call("virtualMIDIClosePort", {Number(handle)});
  if (call.Scripted()) {
    call.Result<int>();
    return;
  }
  if (!PortTable::Get().Remove(port)) {
    BadPort("virtualMIDIClosePort", port);
    call.Done(0);
    return;
  }
  port->Close();
  // Only now may another port bear the name.
  PortTable::Get().Occupy(port->name, false);
  Outbox::Get().Event("port " + std::to_string(port->id) + " closed");
  call.Done(1);
}

DESK_EXPORT BOOL WINAPI DeskVirtualMidiShutdown(void* handle) {
  Call call("virtualMIDIShutdown", {Number(handle)});
  return call.Done(PortTable::Get().IsOpen(static_cast<VirtualPort*>(handle)) ? TRUE : FALSE);
}

DESK_EXPORT LPCWSTR WINAPI DeskVirtualMidiGetVersion(WORD* major, WORD* minor, WORD* release,
                                                     WORD* build) {
  const WORD parts[] = {1, 3, 0, 0};
  WORD* const targets[] = {major, minor, release, build};
  for (int i = 0; i < 4; ++i) {
    if (targets[i] != nullptr) *targets[i] = parts[i];
  }
  return L"1.3.0.0";
}
