#include "platform/missing_libraries.h"

namespace corvalint {
namespace {

std::uint32_t NoDevices() { return 0; }

MidiResult NoCaps(std::uintptr_t, auto*, std::uint32_t) { return kMidiBadDevice; }

MidiResult NoOpen(void**, std::uint32_t, std::uintptr_t, std::uintptr_t, std::uint32_t) {
  return kMidiBadDevice;
}

MidiResult NoHandle(void*) { return kMidiInvalidHandle; }

MidiResult NoHandleForHeader(void*, MidiHeader*, std::uint32_t) { return kMidiInvalidHandle; }

VirtualMidiHandle NoPort(const char16_t*, VirtualMidiCallback, std::uintptr_t, std::uint32_t,
                         std::uint32_t) {
  return nullptr;
}

std::int32_t NoData(VirtualMidiHandle, const std::uint8_t*, std::uint32_t) { return 0; }

void NoClose(VirtualMidiHandle) {}

CoreString NoConstantString(const char*) { return nullptr; }

std::uint8_t NoCString(CoreString, char*, std::int64_t, std::uint32_t) { return 0; }

std::uint32_t NoSubscribe(DeviceNotificationCallback, std::uint32_t, std::uint32_t, std::uintptr_t,
                          void**) {
  return kDeviceLibraryMissing;
}

std::uint32_t NoRestoreNotifications(RestoreCallback, RestoreCallback, RestoreCallback,
                                     RestoreCallback, std::uint32_t, void*) {
  return kDeviceLibraryMissing;
}

CoreString NoValue(DeviceHandle, CoreString, CoreString) { return nullptr; }

CoreString NoIdentifier(DeviceHandle) { return nullptr; }

std::uint32_t NoResult(void*) { return kDeviceLibraryMissing; }

std::uint32_t NoConnectionId(DeviceHandle) { return 0; }

std::uint32_t NoConnection(std::uint32_t, std::uint32_t, std::int64_t*) {
  return kDeviceLibraryMissing;
}

}  // namespace

const WinMidiApi& MissingWinMidi() {
  static constexpr WinMidiApi table{
      .midiInGetNumDevs = NoDevices,
      .midiInGetDevCapsA = NoCaps,
      .midiInOpen = NoOpen,
      .midiInClose = NoHandle,
      .midiInPrepareHeader = NoHandleForHeader,
      .midiInUnprepareHeader = NoHandleForHeader,
      .midiInAddBuffer = NoHandleForHeader,
      .midiInStart = NoHandle,
      .midiInStop = NoHandle,
      .midiInReset = NoHandle,
      .midiOutGetNumDevs = NoDevices,
      .midiOutGetDevCapsA = NoCaps,
      .midiOutOpen = NoOpen,
      .midiOutClose = NoHandle,
      .midiOutPrepareHeader = NoHandleForHeader,
      .midiOutUnprepareHeader = NoHandleForHeader,
      .midiOutLongMsg = NoHandleForHeader,
      .midiOutReset = NoHandle,
  };
  return table;
}

const VirtualMidiApi& MissingVirtualMidi() {
  static constexpr VirtualMidiApi table{
      .virtualMIDICreatePortEx2 = NoPort,
      .virtualMIDISendData = NoData,
      .virtualMIDIClosePort = NoClose,
  };
  return table;
}

const MobileDeviceApi& MissingMobileDevice() {
  static constexpr MobileDeviceApi table{
      .cfStringMakeConstantString = NoConstantString,
      .cfStringGetCString = NoCString,
      .amDeviceNotificationSubscribe = NoSubscribe,
      .amDeviceNotificationUnsubscribe = NoResult,
      .amRestoreRegisterForDeviceNotifications = NoRestoreNotifications,
      .amDeviceCopyValue = NoValue,
      .amDeviceCopyDeviceIdentifier = NoIdentifier,
      .amDeviceConnect = NoResult,
      .amDeviceDisconnect = NoResult,
      .amDeviceGetConnectionId = NoConnectionId,
      .usbMuxConnectByPort = NoConnection,
  };
  return table;
}

}  // namespace corvalint
