#include "fuzz/support/desk_midi.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>

#include "fuzz/support/check.h"

namespace corvalint::fuzz {

namespace {

constexpr MidiResult kFailed = kMidiNoMemory;
constexpr std::uint32_t kHeaderSize = sizeof(MidiHeader);

struct Device {
  bool open = false;
  bool input = false;
  std::uint32_t number = 0;
  MidiInCallback callback = nullptr;
  std::uintptr_t instance = 0;
  std::vector<MidiHeader*> queue;
};

// Handles are places in this table, counted from 1. They are used again after a reset only.
std::deque<Device> devices;

Device* Find(void* handle, bool input) {
  const auto number = reinterpret_cast<std::uintptr_t>(handle);
  if (number == 0) return nullptr;
  Check(number <= devices.size(), "a handle that was never given");
  Device& device = devices[number - 1];
  Check(device.input == input, "an input's handle at an output, or the reverse");
  Check(device.open, "a handle after its close");
  return &device;
}

void* Open(std::uint32_t number, bool input) {
  devices.push_back({.open = true, .input = input, .number = number, .queue = {}});
  return reinterpret_cast<void*>(devices.size());
}

MidiResult InOpen(MidiInHandle* handle, std::uint32_t device, std::uintptr_t callback,
                  std::uintptr_t instance, std::uint32_t flags) {
  DeskMidi& desk = TheDeskMidi();
  Check(flags == kMidiCallbackFunction, "an input without a callback");
  if (desk.openFails || device >= desk.inputs) return kMidiBadDevice;
  *handle = Open(device, true);
  devices.back().callback = reinterpret_cast<MidiInCallback>(callback);
  devices.back().instance = instance;
  return kMidiNoError;
}

MidiResult OutOpen(MidiOutHandle* handle, std::uint32_t device, std::uintptr_t, std::uintptr_t,
                   std::uint32_t flags) {
  DeskMidi& desk = TheDeskMidi();
  Check(flags == kMidiCallbackNull, "an output with a callback");
  if (desk.openFails || device >= desk.outputs) return kMidiBadDevice;
  *handle = Open(device, false);
  return kMidiNoError;
}

MidiResult Close(void* handle, bool input) {
  Device* const device = Find(handle, input);
  if (device == nullptr) return kMidiInvalidHandle;
  if (!device->queue.empty()) return kMidiStillPlaying;
  device->open = false;
  return kMidiNoError;
}

MidiResult Prepare(void* handle, bool input, std::uint32_t size) {
  Check(size == kHeaderSize, "size of a header");
  if (Find(handle, input) == nullptr) return kMidiInvalidHandle;
  DeskMidi& desk = TheDeskMidi();
  if (desk.preparesLeft == 0) return kFailed;
  if (desk.preparesLeft > 0) --desk.preparesLeft;
  return kMidiNoError;
}

MidiResult InAddBuffer(MidiInHandle handle, MidiHeader* header, std::uint32_t) {
  Device* const device = Find(handle, true);
  if (device == nullptr) return kMidiInvalidHandle;
  Check(std::find(device->queue.begin(), device->queue.end(), header) == device->queue.end(),
        "a buffer queued twice");
  device->queue.push_back(header);
  return kMidiNoError;
}

MidiResult InReset(MidiInHandle handle) {
  Device* const device = Find(handle, true);
  if (device == nullptr) return kMidiInvalidHandle;
  while (!device->queue.empty()) {
    MidiHeader* const header = device->queue.front();
    device->queue.erase(device->queue.begin());
    header->bytesRecorded = 0;
    device->callback(handle, kMidiInLongData, device->instance,
                     reinterpret_cast<std::uintptr_t>(header), 0);
  }
  return kMidiNoError;
}

MidiResult OutLongMsg(MidiOutHandle handle, MidiHeader* header, std::uint32_t) {
  Device* const device = Find(handle, false);
  if (device == nullptr) return kMidiInvalidHandle;
  DeskMidi& desk = TheDeskMidi();
  desk.sent.emplace_back(header->data, header->bufferLength);
  desk.sentTo.push_back(device->number);
  return kMidiNoError;
}

template <class Caps>
MidiResult Describe(std::uintptr_t device, Caps* caps, std::uint32_t count) {
  const DeskMidi& desk = TheDeskMidi();
  if (desk.capsFail || device >= count) return kMidiBadDevice;
  std::memset(caps->name, 0, sizeof caps->name);
  std::memcpy(caps->name, desk.nameInCaps.data(),
              std::min<std::size_t>(32, desk.nameInCaps.size()));
  return kMidiNoError;
}

MidiResult Known(void* handle, bool input) {
  return Find(handle, input) == nullptr ? kMidiInvalidHandle : kMidiNoError;
}

const WinMidiApi kWinmm{
    .midiInGetNumDevs = [] { return TheDeskMidi().inputs; },
    .midiInGetDevCapsA = [](std::uintptr_t device, MidiInCaps* caps,
                            std::uint32_t) { return Describe(device, caps, TheDeskMidi().inputs); },
    .midiInOpen = InOpen,
    .midiInClose = [](MidiInHandle handle) { return Close(handle, true); },
    .midiInPrepareHeader = [](MidiInHandle handle, MidiHeader*,
                              std::uint32_t size) { return Prepare(handle, true, size); },
    .midiInUnprepareHeader = [](MidiInHandle handle, MidiHeader*,
                                std::uint32_t) { return Known(handle, true); },
    .midiInAddBuffer = InAddBuffer,
    .midiInStart =
        [](MidiInHandle handle) {
          return TheDeskMidi().startFails ? kFailed : Known(handle, true);
        },
    .midiInStop = [](MidiInHandle handle) { return Known(handle, true); },
    .midiInReset = InReset,
    .midiOutGetNumDevs = [] { return TheDeskMidi().outputs; },
    .midiOutGetDevCapsA =
        [](std::uintptr_t device, MidiOutCaps* caps, std::uint32_t) {
          return Describe(device, caps, TheDeskMidi().outputs);
        },
    .midiOutOpen = OutOpen,
    .midiOutClose = [](MidiOutHandle handle) { return Close(handle, false); },
    .midiOutPrepareHeader = [](MidiOutHandle handle, MidiHeader*,
                               std::uint32_t size) { return Prepare(handle, false, size); },
    .midiOutUnprepareHeader = [](MidiOutHandle handle, MidiHeader*,
                                 std::uint32_t) { return Known(handle, false); },
    .midiOutLongMsg = OutLongMsg,
    .midiOutReset = [](MidiOutHandle handle) { return Known(handle, false); },
};

}  // namespace

int DeskMidi::OpenHandles() const {
  return static_cast<int>(
      std::count_if(devices.begin(), devices.end(), [](const Device& d) { return d.open; }));
}

void DeskMidi::Short(void* handle, std::uint32_t packed) {
  const Device* const device = Find(handle, true);
  device->callback(handle, kMidiInData, device->instance, packed, 0);
}

bool DeskMidi::Long(void* handle, const std::string& bytes) {
  Device* const device = Find(handle, true);
  if (device->queue.empty()) return false;
  MidiHeader* const header = device->queue.front();
  Check(bytes.size() <= header->bufferLength, "a buffer that is too small");
  device->queue.erase(device->queue.begin());
  std::memcpy(header->data, bytes.data(), bytes.size());
  header->bytesRecorded = static_cast<std::uint32_t>(bytes.size());
  device->callback(handle, kMidiInLongData, device->instance,
                   reinterpret_cast<std::uintptr_t>(header), 0);
  return true;
}

void DeskMidi::Reset(std::uint32_t inputCount, std::uint32_t outputCount) {
  devices.clear();
  *this = {};
  inputs = inputCount;
  outputs = outputCount;
}

DeskMidi& TheDeskMidi() {
  static DeskMidi* const desk = [] {
    Install<WinMidiApi>(&kWinmm);
    return new DeskMidi;
  }();
  return *desk;
}

}  // namespace corvalint::fuzz
