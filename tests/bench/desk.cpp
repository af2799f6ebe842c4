#include "bench/desk.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "bench/arrivals.h"
#include "platform/virtual_midi_api.h"
#include "platform/winmm_api.h"

namespace corvalint::bench {

namespace {

// Handles are places in these lists plus one.
constexpr std::array<const char*, 2> kOutputs{kOutput, kSlowOutput};
constexpr std::uintptr_t kSlowHandle = 2;

MidiInCallback inputCallback = nullptr;
std::uintptr_t inputInstance = 0;
std::atomic<int> slowLooks{0};

template <class Caps>
MidiResult Describe(const char* name, Caps* caps) {
  std::memset(caps->name, '\0', sizeof caps->name);
  std::strcpy(caps->name, name);
  return kMidiNoError;
}

MidiResult OpenInput(MidiInHandle* handle, std::uint32_t, std::uintptr_t callback,
                     std::uintptr_t instance, std::uint32_t) {
  inputCallback = reinterpret_cast<MidiInCallback>(callback);
  inputInstance = instance;
  *handle = reinterpret_cast<MidiInHandle>(1);
  return kMidiNoError;
}

MidiResult OpenOutput(MidiOutHandle* handle, std::uint32_t device, std::uintptr_t, std::uintptr_t,
                      std::uint32_t) {
  *handle = reinterpret_cast<MidiOutHandle>(std::uintptr_t{device} + 1);
  return kMidiNoError;
}

MidiResult PlayLong(MidiOutHandle handle, MidiHeader* header, std::uint32_t) {
  if (reinterpret_cast<std::uintptr_t>(handle) == kSlowHandle) slowLooks = kSlowLooks;
  Arrive(reinterpret_cast<const std::uint8_t*>(header->data), header->bufferLength);
  return kMidiNoError;
}

MidiResult Unprepare(MidiOutHandle handle, MidiHeader*, std::uint32_t) {
  if (reinterpret_cast<std::uintptr_t>(handle) != kSlowHandle) return kMidiNoError;
  return slowLooks-- > 0 ? kMidiStillPlaying : kMidiNoError;
}

MidiResult Nothing(void*) { return kMidiNoError; }
MidiResult NothingWithHeader(void*, MidiHeader*, std::uint32_t) { return kMidiNoError; }

constexpr WinMidiApi kWinmm{
    .midiInGetNumDevs = [] { return std::uint32_t{1}; },
    .midiInGetDevCapsA = [](std::uintptr_t, MidiInCaps* caps,
                            std::uint32_t) { return Describe(kKeys, caps); },
    .midiInOpen = OpenInput,
    .midiInClose = Nothing,
    .midiInPrepareHeader = NothingWithHeader,
    .midiInUnprepareHeader = NothingWithHeader,
    .midiInAddBuffer = NothingWithHeader,
    .midiInStart = Nothing,
    .midiInStop = Nothing,
    .midiInReset = Nothing,
    .midiOutGetNumDevs = [] { return static_cast<std::uint32_t>(kOutputs.size()); },
    .midiOutGetDevCapsA = [](std::uintptr_t device, MidiOutCaps* caps,
                             std::uint32_t) { return Describe(kOutputs[device], caps); },
    .midiOutOpen = OpenOutput,
    .midiOutClose = Nothing,
    .midiOutPrepareHeader = NothingWithHeader,
    .midiOutUnprepareHeader = Unprepare,
    .midiOutLongMsg = PlayLong,
    .midiOutReset = Nothing,
};

struct Port {
  std::string name;
  OpenPort open;
};

std::mutex portsMutex;

// Never shrinks; a port that was closed loses its name.
std::vector<Port>& Ports() {
  static auto* const ports = new std::vector<Port>;
  return *ports;
}

VirtualMidiHandle CreatePort(const char16_t* name, VirtualMidiCallback callback,
                             std::uintptr_t instance, std::uint32_t, std::uint32_t) {
  std::string narrow;
  for (; *name != 0; ++name) narrow += static_cast<char>(*name);
  const std::lock_guard hold(portsMutex);
  const auto handle = reinterpret_cast<VirtualMidiHandle>(Ports().size() + 1);
  Ports().push_back({std::move(narrow), {handle, callback, instance}});
  return handle;
}

std::int32_t SendData(VirtualMidiHandle, const std::uint8_t* data, std::uint32_t length) {
  Arrive(data, length);
  return 1;
}

void ClosePort(VirtualMidiHandle handle) {
  const std::lock_guard hold(portsMutex);
  Ports()[reinterpret_cast<std::uintptr_t>(handle) - 1].name.clear();
}

constexpr VirtualMidiApi kDriver{.virtualMIDICreatePortEx2 = CreatePort,
                                 .virtualMIDISendData = SendData,
                                 .virtualMIDIClosePort = ClosePort};

}  // namespace

void InstallDesk() {
  Install<WinMidiApi>(&kWinmm);
  Install<VirtualMidiApi>(&kDriver);
}

void PlayShort(std::uint32_t packed) {
  inputCallback(reinterpret_cast<MidiInHandle>(1), kMidiInData, inputInstance, packed, 0);
}

void EndSlowBlock() { slowLooks = 0; }

OpenPort PortNamed(const std::string& name) {
  const std::lock_guard hold(portsMutex);
  for (const Port& port : Ports()) {
    if (port.name == name) return port.open;
  }
  return {};
}

}  // namespace corvalint::bench
