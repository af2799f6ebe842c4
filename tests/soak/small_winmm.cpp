#include "soak/small_winmm.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "soak/complaints.h"

namespace corvalint::soak {

namespace {

std::atomic<SmallWinmm*> current{nullptr};

// winmm's marks in a header's flags.
constexpr std::uint32_t kDone = 1, kPrepared = 2, kQueued = 4;

void GiveBack(MidiHeader& header, std::size_t bytesRecorded) {
  header.flags = (header.flags & ~kQueued) | kDone;
  header.bytesRecorded = static_cast<std::uint32_t>(bytesRecorded);
}

template <class Caps>
MidiResult Describe(const SmallWinmm::Names& names, std::uintptr_t number, Caps* caps) {
  if (number >= names.size()) return kMidiBadDevice;
  std::memset(caps->name, '\0', sizeof caps->name);
  names[number].copy(caps->name, sizeof caps->name - 1);
  return kMidiNoError;
}

}  // namespace

struct SmallWinmm::Device {
  void* handle = nullptr;
  bool input = false;
  bool started = false;
  MidiInCallback callback = nullptr;
  std::uintptr_t instance = 0;
  int callbacksRunning = 0;
  std::vector<MidiHeader*> queue;
  int looksUntilPlayed = 0;  // an output's block is given back after so many looks
};

struct SmallWinmm::Table {
  static Names Inputs() { return Current().Present(Current().inputs); }
  static Names Outputs() { return Current().Present(Current().outputs); }

  static const WinMidiApi& Get() {
    static constexpr WinMidiApi table{
        .midiInGetNumDevs = [] { return static_cast<std::uint32_t>(Inputs().size()); },
        .midiInGetDevCapsA = [](std::uintptr_t device, MidiInCaps* caps,
                                std::uint32_t) { return Describe(Inputs(), device, caps); },
        .midiInOpen =
            [](MidiInHandle* handle, std::uint32_t device, std::uintptr_t callback,
               std::uintptr_t instance,
               std::uint32_t) { return Current().Open(handle, device, true, callback, instance); },
        .midiInClose = [](MidiInHandle handle) { return Current().Close(handle); },
        .midiInPrepareHeader = [](MidiInHandle handle, MidiHeader* header,
                                  std::uint32_t) { return Current().Prepare(handle, header); },
        .midiInUnprepareHeader = [](MidiInHandle handle, MidiHeader* header,
                                    std::uint32_t) { return Current().Unprepare(handle, header); },
        .midiInAddBuffer = [](MidiInHandle handle, MidiHeader* header,
                              std::uint32_t) { return Current().AddBuffer(handle, header); },
        .midiInStart = [](MidiInHandle handle) { return Current().Start(handle, true); },
        .midiInStop = [](MidiInHandle handle) { return Current().Start(handle, false); },
        .midiInReset = [](MidiInHandle handle) { return Current().ResetInput(handle); },
        .midiOutGetNumDevs = [] { return static_cast<std::uint32_t>(Outputs().size()); },
        .midiOutGetDevCapsA = [](std::uintptr_t device, MidiOutCaps* caps,
                                 std::uint32_t) { return Describe(Outputs(), device, caps); },
        .midiOutOpen = [](MidiOutHandle* handle, std::uint32_t device, std::uintptr_t,
                          std::uintptr_t,
                          std::uint32_t) { return Current().Open(handle, device, false, 0, 0); },
        .midiOutClose = [](MidiOutHandle handle) { return Current().Close(handle); },
        .midiOutPrepareHeader = [](MidiOutHandle handle, MidiHeader* header,
                                   std::uint32_t) { return Current().Prepare(handle, header); },
        .midiOutUnprepareHeader = [](MidiOutHandle handle, MidiHeader* header,
                                     std::uint32_t) { return Current().Unprepare(handle, header); },
        .midiOutLongMsg = [](MidiOutHandle handle, MidiHeader* header,
                             std::uint32_t) { return Current().LongMessage(handle, header); },
        .midiOutReset = [](MidiOutHandle handle) { return Current().ResetOutput(handle); },
    };
    return table;
  }
};

SmallWinmm::SmallWinmm(std::function<Names()> publishedPorts) : ports(std::move(publishedPorts)) {
  current = this;
  Install<WinMidiApi>(&Table::Get());
}

SmallWinmm::~SmallWinmm() {
  Install<WinMidiApi>(nullptr);
  current = nullptr;
}

SmallWinmm& SmallWinmm::Current() { return *current.load(); }

void SmallWinmm::Plug(Names newInputs, Names newOutputs) {
  const std::lock_guard hold(mutex);
  inputs = std::move(newInputs);
  outputs = std::move(newOutputs);
}

void SmallWinmm::FailNextOpen(bool fails) {
  const std::lock_guard hold(mutex);
  failNextOpen = fails;
}

SmallWinmm::Names SmallWinmm::Present(const Names& plugged) const {
  const Names published = ports();
  const std::lock_guard hold(mutex);
  Names names = plugged;
  names.insert(names.end(), published.begin(), published.end());
  return names;
}

// A null handle is refused as winmm refuses it; any other must be open.
SmallWinmm::DevicePointer SmallWinmm::Find(void* handle, const char* function) {
  if (handle == nullptr) return nullptr;
  const auto found = devices.find(handle);
  if (found != devices.end()) return found->second;
  Complain("%s with a handle that is not open", function);
  return nullptr;
}

MidiResult SmallWinmm::Open(void** handle, std::uint32_t number, bool input,
                            std::uintptr_t callback, std::uintptr_t instance) {
  const std::size_t present = Present(input ? inputs : outputs).size();
  const std::lock_guard hold(mutex);
  if (std::exchange(failNextOpen, false)) return kMidiNoMemory;
  if (number >= present) return kMidiBadDevice;
  const auto device = std::make_shared<Device>();
  device->handle = reinterpret_cast<void*>(++lastHandle);
  device->input = input;
  device->callback = reinterpret_cast<MidiInCallback>(callback);
  device->instance = instance;
  devices.emplace(device->handle, device);
  *handle = device->handle;
  return kMidiNoError;
}

MidiResult SmallWinmm::Close(void* handle) {
  std::unique_lock hold(mutex);
  const DevicePointer device = Find(handle, "close");
  if (device == nullptr) return kMidiInvalidHandle;
  if (!device->queue.empty()) return kMidiStillPlaying;
  callbackEnded.wait(hold, [&] { return device->callbacksRunning == 0; });
  devices.erase(handle);
  return kMidiNoError;
}

// Every other time the first buffer comes back with the beginning of a message in it.
MidiResult SmallWinmm::ResetInput(void* handle) {
  std::vector<MidiHeader*> returned;
  DevicePointer device;
  {
    std::unique_lock hold(mutex);
    device = Find(handle, "midiInReset");
    if (device == nullptr) return kMidiInvalidHandle;
    device->started = false;
    returned.swap(device->queue);
    for (MidiHeader* header : returned) GiveBack(*header, 0);
    if (!returned.empty() && ++blocks % 2 == 0) {
      std::memcpy(returned[0]->data, "\xF0\x01\x02", 3);
      returned[0]->bytesRecorded = 3;
    }
    ++device->callbacksRunning;
  }
  for (MidiHeader* header : returned) {
    device->callback(handle, kMidiInLongData, device->instance,
                     reinterpret_cast<std::uintptr_t>(header), 0);
  }
  std::unique_lock hold(mutex);
  --device->callbacksRunning;
  callbackEnded.notify_all();
  callbackEnded.wait(hold, [&] { return device->callbacksRunning == 0; });
  return kMidiNoError;
}

MidiResult SmallWinmm::ResetOutput(void* handle) {
  const std::lock_guard hold(mutex);
  const DevicePointer device = Find(handle, "midiOutReset");
  if (device == nullptr) return kMidiInvalidHandle;
  for (MidiHeader* header : device->queue) GiveBack(*header, 0);
  device->queue.clear();
  return kMidiNoError;
}

MidiResult SmallWinmm::Start(void* handle, bool started) {
  const std::lock_guard hold(mutex);
  const DevicePointer device = Find(handle, "midiInStart or midiInStop");
  if (device == nullptr) return kMidiInvalidHandle;
  device->started = started;
  return kMidiNoError;
}

MidiResult SmallWinmm::Prepare(void* handle, MidiHeader* header) {
  const std::lock_guard hold(mutex);
  if (Find(handle, "prepare") == nullptr) return kMidiInvalidHandle;
  if ((header->flags & (kPrepared | kQueued)) != 0) Complain("a header in use was prepared");
  header->flags = kPrepared;
  return kMidiNoError;
}

MidiResult SmallWinmm::Unprepare(void* handle, MidiHeader* header) {
  const std::lock_guard hold(mutex);
  const DevicePointer device = Find(handle, "unprepare");
  if (device == nullptr) return kMidiInvalidHandle;
  if ((header->flags & kQueued) != 0 && !device->input && --device->looksUntilPlayed <= 0) {
    GiveBack(*header, 0);
    std::erase(device->queue, header);
  }
  if ((header->flags & kQueued) != 0) return kMidiStillPlaying;
  header->flags &= ~kPrepared;
  return kMidiNoError;
}

MidiResult SmallWinmm::AddBuffer(void* handle, MidiHeader* header) {
  const std::lock_guard hold(mutex);
  const DevicePointer device = Find(handle, "midiInAddBuffer");
  if (device == nullptr) return kMidiInvalidHandle;
  if ((header->flags & kPrepared) == 0) Complain("an unprepared buffer was queued");
  if ((header->flags & kQueued) != 0) Complain("a buffer was queued twice");
  header->flags = (header->flags & ~kDone) | kQueued;
  header->bytesRecorded = 0;
  device->queue.push_back(header);
  return kMidiNoError;
}

MidiResult SmallWinmm::LongMessage(void* handle, MidiHeader* header) {
  const std::lock_guard hold(mutex);
  const DevicePointer device = Find(handle, "midiOutLongMsg");
  if (device == nullptr) return kMidiInvalidHandle;
  if ((header->flags & kPrepared) == 0) Complain("an unprepared block was sent");
  if (!device->queue.empty()) Complain("two blocks of one sender at an output");
  sent.Saw(reinterpret_cast<const std::uint8_t*>(header->data), header->bufferLength);
  header->flags |= kQueued;
  device->queue.push_back(header);
  device->looksUntilPlayed = static_cast<int>(++blocks % 4);
  return kMidiNoError;
}

// The caller has the lock, and counts the callback before it leaves it.
SmallWinmm::DevicePointer SmallWinmm::Pick(std::uint64_t pick, bool withBuffer) {
  std::vector<DevicePointer> able;
  for (const auto& [handle, device] : devices) {
    if (device->input && device->started && (!withBuffer || !device->queue.empty())) {
      able.push_back(device);
    }
  }
  return able.empty() ? nullptr : able[pick % able.size()];
}

void SmallWinmm::RunCallback(Device& device, std::uint32_t message, std::uintptr_t parameter1) {
  device.callback(device.handle, message, device.instance, parameter1, 0);
  const std::lock_guard hold(mutex);
  --device.callbacksRunning;
  callbackEnded.notify_all();
}

bool SmallWinmm::PlayShort(std::uint64_t pick, std::uint32_t packed) {
  DevicePointer device;
  {
    const std::lock_guard hold(mutex);
    device = Pick(pick, false);
    if (device == nullptr) return false;
    ++device->callbacksRunning;
  }
  RunCallback(*device, kMidiInData, packed);
  return true;
}

bool SmallWinmm::PlayLong(std::uint64_t pick, const Bytes& bytes) {
  DevicePointer device;
  MidiHeader* header = nullptr;
  {
    const std::lock_guard hold(mutex);
    device = Pick(pick, true);
    if (device == nullptr) return false;
    ++device->callbacksRunning;
    header = device->queue.front();
    device->queue.erase(device->queue.begin());
    const std::size_t count = std::min<std::size_t>(bytes.size(), header->bufferLength);
    std::memcpy(header->data, bytes.data(), count);
    GiveBack(*header, count);
  }
  RunCallback(*device, kMidiInLongData, reinterpret_cast<std::uintptr_t>(header));
  return true;
}

std::size_t SmallWinmm::OpenDevices() const {
  const std::lock_guard hold(mutex);
  return devices.size();
}

}  // namespace corvalint::soak
