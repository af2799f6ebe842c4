#include <fcntl.h>
#include <sys/socket.h>

#include <deque>
#include <map>
#include <mutex>
#include <set>

#include "failing_tables.h"
#include "forwarding.h"
#include "platform/mobile_device_api.h"
#include "platform/virtual_midi_api.h"
#include "platform/winmm_api.h"

namespace corvalint::faults {

namespace {

// --- winmm

MidiInCallback inputCallback = nullptr;
VirtualMidiCallback portCallback = nullptr;
DeviceNotificationCallback notificationCallback = nullptr;

// Drivers call into the library from outside.
void OnInput(MidiInHandle handle, std::uint32_t message, std::uintptr_t instance,
             std::uintptr_t parameter1, std::uintptr_t parameter2) {
  const InsideScope inside;
  inputCallback(handle, message, instance, parameter1, parameter2);
}

MidiResult OpenInput(MidiInHandle* handle, std::uint32_t device, std::uintptr_t callback,
                     std::uintptr_t instance, std::uint32_t flags) {
  inputCallback = reinterpret_cast<MidiInCallback>(callback);
  return Forward(Table::winMidi, "midiInOpen", under<WinMidiApi>.midiInOpen, kMidiNoMemory, handle,
                 device, reinterpret_cast<std::uintptr_t>(&OnInput), instance, flags);
}

// A driver that says so keeps the block: what is leaked then is not lost.
MidiResult UnprepareOutput(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
  static auto* const kept = new std::set<MidiHeader*>;
  static std::mutex mutex;
  const MidiResult result =
      Forward(Table::winMidi, "midiOutUnprepareHeader", under<WinMidiApi>.midiOutUnprepareHeader,
              kMidiStillPlaying, handle, header, size);
  const OutsideScope outside;
  const std::lock_guard hold(mutex);
  if (result == kMidiStillPlaying) {
    kept->insert(header);
  } else {
    kept->erase(header);
  }
  return result;
}

#define WINMM(name, failure) CORVALINT_FAILS_WITH(Table::winMidi, WinMidiApi, name, failure)

const WinMidiApi kWinMidi{
    WINMM(midiInGetNumDevs, 0u),
    WINMM(midiInGetDevCapsA, kMidiBadDevice),
    .midiInOpen = OpenInput,
    WINMM(midiInClose, kMidiStillPlaying),
    WINMM(midiInPrepareHeader, kMidiNoMemory),
    WINMM(midiInUnprepareHeader, kMidiStillPlaying),
    WINMM(midiInAddBuffer, kMidiNoMemory),
    WINMM(midiInStart, kMidiInvalidHandle),
    WINMM(midiInStop, kMidiInvalidHandle),
    WINMM(midiInReset, kMidiInvalidHandle),
    WINMM(midiOutGetNumDevs, 0u),
    WINMM(midiOutGetDevCapsA, kMidiBadDevice),
    WINMM(midiOutOpen, kMidiNoMemory),
    WINMM(midiOutClose, kMidiStillPlaying),
    WINMM(midiOutPrepareHeader, kMidiNoMemory),
    .midiOutUnprepareHeader = UnprepareOutput,
    WINMM(midiOutLongMsg, kMidiInvalidHandle),
    WINMM(midiOutReset, kMidiInvalidHandle),
};

// --- the driver of virtual ports

void OnPortData(VirtualMidiHandle port, std::uint8_t* data, std::uint32_t length,
                std::uintptr_t instance) {
  const InsideScope inside;
  portCallback(port, data, length, instance);
}

VirtualMidiHandle CreatePort(const char16_t* name, VirtualMidiCallback callback,
                             std::uintptr_t instance, std::uint32_t maxSysexLength,
                             std::uint32_t flags) {
  portCallback = callback;
  return Forward(Table::virtualMidi, "virtualMIDICreatePortEx2",
                 under<VirtualMidiApi>.virtualMIDICreatePortEx2, nullptr, name, OnPortData,
                 instance, maxSysexLength, flags);
}

void ClosePort(VirtualMidiHandle port) {
  const OutsideScope outside;
  under<VirtualMidiApi>.virtualMIDIClosePort(port);  // tells of no failure
}

const VirtualMidiApi kVirtualMidi{
    .virtualMIDICreatePortEx2 = CreatePort,
    CORVALINT_FAILS_WITH(Table::virtualMidi, VirtualMidiApi, virtualMIDISendData, 0),
    .virtualMIDIClosePort = ClosePort,
};

// --- Apple's library

struct Streams {
  std::mutex mutex;
  std::map<std::uint32_t, std::deque<int>> untaken;  // by connection
  std::map<int, std::uint32_t> connections;          // of the library's ends
};
Streams& TheStreams() {
  static auto* const streams = new Streams;
  return *streams;
}

void OnNotification(const void* record) {
  const InsideScope inside;
  notificationCallback(record);
}

std::uint32_t Subscribe(DeviceNotificationCallback callback, std::uint32_t unused1,
                        std::uint32_t unused2, std::uintptr_t context, void** notification) {
  notificationCallback = callback;
  return Forward(Table::mobileDevice, "amDeviceNotificationSubscribe",
                 under<MobileDeviceApi>.amDeviceNotificationSubscribe, kDeviceLibraryMissing,
                 OnNotification, unused1, unused2, context, notification);
}

// Without a key the real function answers with everything that it knows.
CoreString CopyValue(DeviceHandle device, CoreString domain, CoreString key) {
  if (Fails(Table::mobileDevice, "amDeviceCopyValue") || key == nullptr) return nullptr;
  const OutsideScope outside;
  return under<MobileDeviceApi>.amDeviceCopyValue(device, domain, key);
}

std::uint32_t ConnectByPort(std::uint32_t connectionId, std::uint32_t, std::int64_t* socket) {
  const auto device = static_cast<int>(connectionId);
  if (Fails(Table::mobileDevice, "usbMuxConnectByPort", device)) {
    *socket = 0xBEEF;  // something is stored all the same
    return 0xE8000013;
  }
  const OutsideScope outside;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 1;
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  *socket = ends[0];
  Streams& streams = TheStreams();
  const std::lock_guard hold(streams.mutex);
  streams.connections[ends[0]] = connectionId;
  streams.untaken[connectionId].push_back(ends[1]);
  return 0;
}

#define MOBILE(name, failure) \
  CORVALINT_FAILS_WITH(Table::mobileDevice, MobileDeviceApi, name, failure)

const MobileDeviceApi kMobileDevice{
    MOBILE(cfStringMakeConstantString, nullptr),
    MOBILE(cfStringGetCString, 0),
    .amDeviceNotificationSubscribe = Subscribe,
    MOBILE(amDeviceNotificationUnsubscribe, kDeviceLibraryMissing),
    MOBILE(amRestoreRegisterForDeviceNotifications, kDeviceLibraryMissing),
    .amDeviceCopyValue = CopyValue,
    MOBILE(amDeviceCopyDeviceIdentifier, nullptr),
    MOBILE(amDeviceConnect, 0xE8000012),
    MOBILE(amDeviceDisconnect, 0xE800000B),
    MOBILE(amDeviceGetConnectionId, 0u),
    .usbMuxConnectByPort = ConnectByPort,
};

}  // namespace

int TakeStream(std::uint32_t connectionId) {
  Streams& streams = TheStreams();
  const std::lock_guard hold(streams.mutex);
  auto& waiting = streams.untaken[connectionId];
  if (waiting.empty()) return 0;
  const int taken = waiting.front();
  waiting.pop_front();
  return taken;
}

int DeviceOfSocket(int socket) {
  Streams& streams = TheStreams();
  const std::lock_guard hold(streams.mutex);
  const auto entry = streams.connections.find(socket);
  return entry == streams.connections.end() ? 0 : static_cast<int>(entry->second);
}

void WrapDeviceLibraries() {
  under<WinMidiApi> = Use<WinMidiApi>();
  under<VirtualMidiApi> = Use<VirtualMidiApi>();
  under<MobileDeviceApi> = Use<MobileDeviceApi>();
  Install<WinMidiApi>(&kWinMidi);
  Install<VirtualMidiApi>(&kVirtualMidi);
  Install<MobileDeviceApi>(&kMobileDevice);
}

}  // namespace corvalint::faults
