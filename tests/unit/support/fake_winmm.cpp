#include "support/fake_winmm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <utility>

namespace corvalint::test {

namespace {

std::atomic<FakeWinmm*> current{nullptr};
thread_local void* callbackOfThisThread = nullptr;

// winmm's marks in a header's flags.
constexpr std::uint32_t kDone = 1, kPrepared = 2, kQueued = 4;

// Keeps what a driver never gave back reachable: it is lost on purpose.
void NeverGivenBack(const MidiHeader* header) {
  static auto* const headers = new std::vector<const MidiHeader*>;
  headers->push_back(header);
}

void GiveBack(MidiHeader& header, std::uint32_t bytesRecorded) {
  header.flags = (header.flags & ~kQueued) | kDone;
  header.bytesRecorded = bytesRecorded;
}

std::string Hex(const char* data, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, "%02X", static_cast<unsigned>(data[i]) & 0xFFu);
    text += (i == 0 ? "" : " ") + std::string(byte);
  }
  return text;
}

FakeWinmm::Bytes BytesOf(const MidiHeader& header) {
  return {header.data, header.data + header.bufferLength};
}

}  // namespace

// --- life and script

FakeWinmm::FakeWinmm() {
  current = this;
  Install<WinMidiApi>(&Api());
}

FakeWinmm::~FakeWinmm() {
  for (const std::string& call : TakeCalls()) ADD_FAILURE() << "unclaimed call: " << call;
  for (const auto& device : devices) {
    for (const MidiHeader* header : device->queue) NeverGivenBack(header);
  }
  Install<WinMidiApi>(nullptr);
  current = nullptr;
}

FakeWinmm& FakeWinmm::Current() { return *current; }

// --- devices

std::uint32_t FakeWinmm::CountDevices(const char* function, const std::vector<std::string>& names) {
  Begin(function, "");
  const std::lock_guard hold(mutex);
  return static_cast<std::uint32_t>(names.size());
}

template <class Caps>
MidiResult FakeWinmm::Describe(const char* function, std::uintptr_t number, Caps* caps,
                               std::uint32_t size, const std::vector<std::string>& names) {
  if (const auto answer = Begin(function, std::to_string(number))) return *answer;
  EXPECT_EQ(size, sizeof(Caps)) << function;
  const std::lock_guard hold(mutex);
  if (number >= names.size()) return kMidiBadDevice;
  std::memset(caps->name, '\0', sizeof caps->name);
  names[number].copy(caps->name, sizeof caps->name);
  return kMidiNoError;
}

MidiResult FakeWinmm::Open(void** handle, std::uint32_t number, bool input, std::uintptr_t callback,
                           std::uintptr_t instance, std::uint32_t flags) {
  const auto answer = Begin(input ? "midiInOpen" : "midiOutOpen", std::to_string(number));
  if (answer) return *answer;
  EXPECT_EQ(flags, input ? kMidiCallbackFunction : kMidiCallbackNull);
  if (!input) {
    EXPECT_EQ(callback, 0u);
    EXPECT_EQ(instance, 0u);
  }
  const std::lock_guard hold(mutex);
  const auto& names = input ? inputs : outputs;
  if (number >= names.size()) return kMidiBadDevice;
  auto device = std::make_unique<Device>();
  device->name = names[number].substr(0, 32);
  device->input = input;
  device->callback = reinterpret_cast<MidiInCallback>(callback);
  device->instance = instance;
  *handle = device.get();
  devices.push_back(std::move(device));
  return kMidiNoError;
}

template MidiResult FakeWinmm::Describe(const char*, std::uintptr_t, MidiInCaps*, std::uint32_t,
                                        const std::vector<std::string>&);
template MidiResult FakeWinmm::Describe(const char*, std::uintptr_t, MidiOutCaps*, std::uint32_t,
                                        const std::vector<std::string>&);

FakeWinmm::Device* FakeWinmm::OpenDevice(const std::string& name, bool input) const {
  for (auto i = devices.rbegin(); i != devices.rend(); ++i) {
    if ((*i)->open && (*i)->input == input && (*i)->name == name) return i->get();
  }
  return nullptr;
}

std::string FakeWinmm::NameOf(void* handle) const {
  if (handle == nullptr) return "null";
  const std::lock_guard hold(mutex);
  for (const auto& device : devices) {
    if (device.get() == handle) return device->name;
  }
  return "unknown";
}

FakeWinmm::Device* FakeWinmm::DeviceOf(void* handle, const char* function) {
  if (handle == nullptr) return nullptr;
  for (const auto& device : devices) {
    if (device.get() == handle && device->open) return device.get();
  }
  ADD_FAILURE() << function << " with a handle that is not open";
  return nullptr;
}

std::vector<std::string> FakeWinmm::OpenDevices() const {
  const std::lock_guard hold(mutex);
  std::vector<std::string> names;
  for (const bool input : {true, false}) {
    for (const auto& device : devices) {
      if (device->open && device->input == input) names.push_back(device->name);
    }
  }
  return names;
}

MidiResult FakeWinmm::SetStarted(const char* function, void* handle, bool started) {
  if (const auto answer = Begin(function, NameOf(handle))) return *answer;
  const std::lock_guard hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  device->started = started;
  return kMidiNoError;
}

MidiResult FakeWinmm::Close(const char* function, void* handle) {
  if (const auto answer = Begin(function, NameOf(handle))) return *answer;
  std::unique_lock hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  if (!device->queue.empty()) return kMidiStillPlaying;
  WaitForCallbacks(*device, hold);
  device->open = false;
  return kMidiNoError;
}

MidiResult FakeWinmm::Reset(const char* function, void* handle) {
  if (const auto answer = Begin(function, NameOf(handle))) return *answer;
  std::unique_lock hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  device->started = false;
  if (!device->input) {
    if (deafToReset.count(device->name) == 0) {
      for (MidiHeader* header : std::exchange(device->queue, {})) GiveBack(*header, 0);
    }
    return kMidiNoError;
  }
  WaitForCallbacks(*device, hold);
  if (keeping.count(device->name) != 0) return kMidiNoError;
  // Only what is queued now: a buffer that is queued again meanwhile stays with the driver.
  for (MidiHeader* header : std::exchange(device->queue, {})) {
    const Bytes rest = std::exchange(device->unfinished, {});
    std::copy(rest.begin(), rest.end(), header->data);
    GiveBack(*header, static_cast<std::uint32_t>(rest.size()));
    ++device->callbacksRunning;
    hold.unlock();
    RunCallback(*device, kMidiInLongData, reinterpret_cast<std::uintptr_t>(header));
    hold.lock();
  }
  return kMidiNoError;
}

// --- headers

std::string FakeWinmm::HeaderText(void* handle, const MidiHeader* header) const {
  const std::string name = NameOf(handle);
  {
    const std::lock_guard hold(mutex);
    for (const auto& device : devices) {
      if (device.get() == handle && device->input) {
        return name + ", " + std::to_string(header->user);
      }
    }
  }
  return name + ", " + Hex(header->data, header->bufferLength);
}

MidiResult FakeWinmm::Prepare(const char* function, void* handle, MidiHeader* header,
                              std::uint32_t size) {
  if (const auto answer = Begin(function, HeaderText(handle, header))) return *answer;
  EXPECT_EQ(size, sizeof(MidiHeader)) << function;
  const std::lock_guard hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  EXPECT_EQ(header->flags & (kPrepared | kQueued), 0u) << function << " of a header in use";
  EXPECT_TRUE(device->input || header->flags == 0) << function << " with flags";
  header->flags = kPrepared;
  return kMidiNoError;
}

MidiResult FakeWinmm::Unprepare(const char* function, void* handle, MidiHeader* header,
                                std::uint32_t size) {
  if (const auto answer = Begin(function, HeaderText(handle, header))) return *answer;
  EXPECT_EQ(size, sizeof(MidiHeader)) << function;
  const std::lock_guard hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  if ((header->flags & kQueued) != 0) return kMidiStillPlaying;
  header->flags &= ~kPrepared;
  return kMidiNoError;
}

MidiResult FakeWinmm::Queue(const char* function, void* handle, MidiHeader* header,
                            std::uint32_t size) {
  if (const auto answer = Begin(function, HeaderText(handle, header))) return *answer;
  EXPECT_EQ(size, sizeof(MidiHeader)) << function;
  const std::lock_guard hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  EXPECT_NE(header->flags & kPrepared, 0u) << function << " of an unprepared header";
  EXPECT_EQ(header->flags & kQueued, 0u) << function << " of a header that is queued";
  if (device->input) {
    header->flags = (header->flags & ~kDone) | kQueued;
    header->bytesRecorded = 0;
    device->queue.push_back(header);
    return kMidiNoError;
  }
  sent[device->name].push_back(BytesOf(*header));
  if (holding.count(device->name) == 0) {
    GiveBack(*header, 0);
  } else {
    header->flags |= kQueued;
    device->queue.push_back(header);
  }
  return kMidiNoError;
}

// --- input

void FakeWinmm::WaitForCallbacks(Device& device, std::unique_lock<std::mutex>& hold) {
  if (callbackOfThisThread == &device) {
    ADD_FAILURE() << "a reset or close inside the device's own callback never returns";
    return;
  }
  const bool ended = callbackEnded.wait_for(hold, std::chrono::seconds(30),
                                            [&] { return device.callbacksRunning == 0; });
  if (!ended) ADD_FAILURE() << "a callback of " << device.name << " waits for its own closer";
}

void FakeWinmm::RunCallback(Device& device, std::uint32_t message, std::uintptr_t parameter1) {
  void* const before = std::exchange(callbackOfThisThread, &device);
  device.callback(&device, message, device.instance, parameter1, 0);
  callbackOfThisThread = before;
  const std::lock_guard hold(mutex);
  --device.callbacksRunning;
  callbackEnded.notify_all();
}

bool FakeWinmm::CallBack(const std::string& input, std::uint32_t message,
                         std::uintptr_t parameter1) {
  Device* device = nullptr;
  {
    const std::lock_guard hold(mutex);
    device = OpenDevice(input, true);
    if (device == nullptr) return false;
    ++device->callbacksRunning;
  }
  RunCallback(*device, message, parameter1);
  return true;
}

bool FakeWinmm::PlayShort(const std::string& input, std::uint32_t packed) {
  Device* device = nullptr;
  {
    const std::lock_guard hold(mutex);
    device = OpenDevice(input, true);
    if (device == nullptr || !device->started) return false;
    ++device->callbacksRunning;
  }
  RunCallback(*device, kMidiInData, packed);
  return true;
}

bool FakeWinmm::PlayLong(const std::string& input, const Bytes& bytes, std::uint32_t message) {
  Device* device = nullptr;
  MidiHeader* header = nullptr;
  {
    const std::lock_guard hold(mutex);
    device = OpenDevice(input, true);
    if (device == nullptr || !device->started || device->queue.empty()) return false;
    ++device->callbacksRunning;
    header = device->queue.front();
    device->queue.erase(device->queue.begin());
    EXPECT_LE(bytes.size(), header->bufferLength);
    std::copy(bytes.begin(), bytes.end(), header->data);
    GiveBack(*header, static_cast<std::uint32_t>(bytes.size()));
  }
  RunCallback(*device, message, reinterpret_cast<std::uintptr_t>(header));
  return true;
}

void FakeWinmm::PlayUnfinished(const std::string& input, const Bytes& bytes) {
  const std::lock_guard hold(mutex);
  Device* const device = OpenDevice(input, true);
  ASSERT_NE(device, nullptr);
  device->unfinished = bytes;
}

std::vector<MidiHeader*> FakeWinmm::Queued(const std::string& input) const {
  const std::lock_guard hold(mutex);
  const Device* const device = OpenDevice(input, true);
  return device == nullptr ? std::vector<MidiHeader*>{} : device->queue;
}

void FakeWinmm::KeepBuffersForever(const std::string& input) {
  const std::lock_guard hold(mutex);
  keeping.insert(input);
}

// --- output

std::vector<FakeWinmm::Bytes> FakeWinmm::Sent(const std::string& output) const {
  const std::lock_guard hold(mutex);
  const auto entry = sent.find(output);
  return entry == sent.end() ? std::vector<Bytes>{} : entry->second;
}

void FakeWinmm::HoldBlocks(const std::string& output, bool ignoreReset) {
  const std::lock_guard hold(mutex);
  holding.insert(output);
  if (ignoreReset) deafToReset.insert(output);
}

std::vector<FakeWinmm::Bytes> FakeWinmm::HeldBlocks(const std::string& output) const {
  const std::lock_guard hold(mutex);
  std::vector<Bytes> blocks;
  for (const auto& device : devices) {
    if (device->input || device->name != output) continue;
    for (const MidiHeader* header : device->queue) blocks.push_back(BytesOf(*header));
  }
  return blocks;
}

}  // namespace corvalint::test
