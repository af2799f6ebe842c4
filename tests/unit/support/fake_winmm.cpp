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

// --- the functions of the table

struct FakeWinmm::Table {
  static std::uint32_t InGetNumDevs() {
    return Current().CountDevices("midiInGetNumDevs", Current().inputs);
  }
  static std::uint32_t OutGetNumDevs() {
    return Current().CountDevices("midiOutGetNumDevs", Current().outputs);
  }
  static MidiResult InGetDevCaps(std::uintptr_t number, MidiInCaps* caps, std::uint32_t size) {
    return Current().Describe("midiInGetDevCapsA", number, caps, size, Current().inputs);
  }
  static MidiResult OutGetDevCaps(std::uintptr_t number, MidiOutCaps* caps, std::uint32_t size) {
    return Current().Describe("midiOutGetDevCapsA", number, caps, size, Current().outputs);
  }
  static MidiResult InOpen(MidiInHandle* handle, std::uint32_t number, std::uintptr_t callback,
                           std::uintptr_t instance, std::uint32_t flags) {
    return Current().Open(handle, number, true, callback, instance, flags);
  }
  static MidiResult OutOpen(MidiOutHandle* handle, std::uint32_t number, std::uintptr_t callback,
                            std::uintptr_t instance, std::uint32_t flags) {
    return Current().Open(handle, number, false, callback, instance, flags);
  }
  static MidiResult InClose(MidiInHandle handle) { return Current().Close("midiInClose", handle); }
  static MidiResult OutClose(MidiOutHandle handle) {
    return Current().Close("midiOutClose", handle);
  }
  static MidiResult InPrepare(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Prepare("midiInPrepareHeader", handle, header, size);
  }
  static MidiResult OutPrepare(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Prepare("midiOutPrepareHeader", handle, header, size);
  }
  static MidiResult InUnprepare(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Unprepare("midiInUnprepareHeader", handle, header, size);
  }
  static MidiResult OutUnprepare(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Unprepare("midiOutUnprepareHeader", handle, header, size);
  }
  static MidiResult InAddBuffer(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Queue("midiInAddBuffer", handle, header, size);
  }
  static MidiResult OutLongMsg(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Queue("midiOutLongMsg", handle, header, size);
  }
  static MidiResult InStart(MidiInHandle handle) {
    return Current().SetStarted("midiInStart", handle, true);
  }
  static MidiResult InStop(MidiInHandle handle) {
    return Current().SetStarted("midiInStop", handle, false);
  }
  static MidiResult InReset(MidiInHandle handle) { return Current().Reset("midiInReset", handle); }
  static MidiResult OutReset(MidiOutHandle handle) {
    return Current().Reset("midiOutReset", handle);
  }

  static constexpr WinMidiApi kApi{
      .midiInGetNumDevs = InGetNumDevs,
      .midiInGetDevCapsA = InGetDevCaps,
      .midiInOpen = InOpen,
      .midiInClose = InClose,
      .midiInPrepareHeader = InPrepare,
      .midiInUnprepareHeader = InUnprepare,
      .midiInAddBuffer = InAddBuffer,
      .midiInStart = InStart,
      .midiInStop = InStop,
      .midiInReset = InReset,
      .midiOutGetNumDevs = OutGetNumDevs,
      .midiOutGetDevCapsA = OutGetDevCaps,
      .midiOutOpen = OutOpen,
      .midiOutClose = OutClose,
      .midiOutPrepareHeader = OutPrepare,
      .midiOutUnprepareHeader = OutUnprepare,
      .midiOutLongMsg = OutLongMsg,
      .midiOutReset = OutReset,
  };
};

// --- life and script

FakeWinmm::FakeWinmm() {
  current = this;
  Install<WinMidiApi>(&Table::kApi);
}

FakeWinmm::~FakeWinmm() {
  for (const std::string& call : TakeCalls()) ADD_FAILURE() << "unclaimed call: " << call;
  Install<WinMidiApi>(nullptr);
  current = nullptr;
}

FakeWinmm& FakeWinmm::Current() { return *current; }

void FakeWinmm::SetInputs(std::vector<std::string> names) {
  const std::lock_guard hold(mutex);
  inputs = std::move(names);
}

void FakeWinmm::SetOutputs(std::vector<std::string> names) {
  const std::lock_guard hold(mutex);
  outputs = std::move(names);
}

void FakeWinmm::Fail(const std::string& function, MidiResult result, int times, int skip) {
  const std::lock_guard hold(mutex);
  failures[function].push_back({result, times, skip});
}

void FakeWinmm::WhenCalled(const std::string& function, std::function<void()> action) {
  const std::lock_guard hold(mutex);
  actions[function] = std::move(action);
}

FakeWinmm::Calls FakeWinmm::TakeCalls() {
  const std::lock_guard hold(mutex);
  return std::exchange(calls, {});
}

int FakeWinmm::Count(const std::string& function) const {
  const std::lock_guard hold(mutex);
  const auto entry = counts.find(function);
  return entry == counts.end() ? 0 : entry->second;
}

std::unique_ptr<MidiResult> FakeWinmm::Begin(const char* function, const std::string& arguments) {
  std::function<void()> action;
  std::unique_ptr<MidiResult> answer;
  {
    const std::lock_guard hold(mutex);
    calls.push_back(std::string(function) + "(" + arguments + ")");
    ++counts[function];
    for (Failure& failure : failures[function]) {
      if (failure.times == 0) continue;
      if (failure.skip > 0) {
        --failure.skip;
      } else {
        --failure.times;
        answer = std::make_unique<MidiResult>(failure.result);
      }
      break;
    }
    const auto entry = actions.find(function);
    if (entry != actions.end()) action = entry->second;
  }
  if (action) action();
  return answer;
}

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
    if (deafToReset.count(device->name) == 0) device->queue.clear();
    return kMidiNoError;
  }
  WaitForCallbacks(*device, hold);
  if (keeping.count(device->name) != 0) return kMidiNoError;
  // Only what is queued now: a buffer that is queued again meanwhile stays with the driver.
  for (MidiHeader* header : std::exchange(device->queue, {})) {
    const Bytes rest = std::exchange(device->unfinished, {});
    std::copy(rest.begin(), rest.end(), header->data);
    header->bytesRecorded = static_cast<std::uint32_t>(rest.size());
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
  EXPECT_EQ(header->flags, 0u) << function << " with flags";
  EXPECT_TRUE(device->prepared.insert(header).second) << function << " of a prepared header";
  return kMidiNoError;
}

MidiResult FakeWinmm::Unprepare(const char* function, void* handle, MidiHeader* header,
                                std::uint32_t size) {
  if (const auto answer = Begin(function, HeaderText(handle, header))) return *answer;
  EXPECT_EQ(size, sizeof(MidiHeader)) << function;
  const std::lock_guard hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  const auto& queue = device->queue;
  if (std::find(queue.begin(), queue.end(), header) != queue.end()) return kMidiStillPlaying;
  device->prepared.erase(header);
  return kMidiNoError;
}

MidiResult FakeWinmm::Queue(const char* function, void* handle, MidiHeader* header,
                            std::uint32_t size) {
  if (const auto answer = Begin(function, HeaderText(handle, header))) return *answer;
  EXPECT_EQ(size, sizeof(MidiHeader)) << function;
  const std::lock_guard hold(mutex);
  Device* const device = DeviceOf(handle, function);
  if (device == nullptr) return kMidiInvalidHandle;
  EXPECT_EQ(device->prepared.count(header), 1u) << function << " of an unprepared header";
  EXPECT_EQ(std::count(device->queue.begin(), device->queue.end(), header), 0)
      << function << " of a header that is queued";
  if (device->input) {
    header->bytesRecorded = 0;
    device->queue.push_back(header);
    return kMidiNoError;
  }
  sent[device->name].push_back(BytesOf(*header));
  if (holding.count(device->name) != 0) device->queue.push_back(header);
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
    header->bytesRecorded = static_cast<std::uint32_t>(bytes.size());
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

std::vector<FakeWinmm::Bytes> FakeWinmm::FinishBlocks(const std::string& output) {
  const std::lock_guard hold(mutex);
  std::vector<Bytes> blocks;
  for (const auto& device : devices) {
    if (device->input || device->name != output) continue;
    for (const MidiHeader* header : std::exchange(device->queue, {})) {
      blocks.push_back(BytesOf(*header));
    }
  }
  return blocks;
}

}  // namespace corvalint::test
