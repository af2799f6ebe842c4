#include "midi_table.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "midi_messages.h"
#include "outbox.h"
#include "pace.h"

namespace corvalint::desk {

namespace {

template <typename List, typename Item>
void InsertAt(List& list, Item item, std::int64_t position) {
  const auto size = static_cast<std::int64_t>(list.size());
  const std::int64_t place = position >= 0 && position < size ? position : size;
  list.insert(list.begin() + place, std::move(item));
}

template <typename Map>
auto FindOrThrow(const Map& map, int id) {
  const auto found = map.find(id);
  if (found == map.end()) throw std::runtime_error("no such device: " + std::to_string(id));
  return found->second;
}

template <typename Map, typename Key>
typename Map::mapped_type FindOrNull(const Map& map, const Key& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : found->second;
}

}  // namespace

MidiTable& MidiTable::Get() {
  static MidiTable* table = new MidiTable;
  return *table;
}

std::shared_ptr<InputDevice> MidiTable::AddInput(std::string name, std::wstring wide,
                                                 std::int64_t position) {
  auto device = std::make_shared<InputDevice>();
  device->name = std::move(name);
  device->wideName = std::move(wide);
  const std::lock_guard hold(lock);
  device->id = ++lastId;
  allInputs[device->id] = device;
  InsertAt(inputs, device, position);
  return device;
}

std::shared_ptr<OutputDevice> MidiTable::AddOutput(std::string name, std::wstring wide,
                                                   std::int64_t position,
                                                   std::function<void(Bytes)> sink) {
  auto device = std::make_shared<OutputDevice>();
  device->name = std::move(name);
  device->wideName = std::move(wide);
  device->sink = std::move(sink);
  const std::lock_guard hold(lock);
  device->id = ++lastId;
  allOutputs[device->id] = device;
  InsertAt(outputs, device, position);
  return device;
}

void MidiTable::RemoveInput(int id, MMRESULT result) {
  const auto device = InputById(id);
  device->resultWhenGone = result;
  device->gone = true;
  device->driver.StopSoon();
  const std::lock_guard hold(lock);
  std::erase(inputs, device);
}

void MidiTable::RemoveOutput(int id, MMRESULT result) {
  const auto device = OutputById(id);
  device->resultWhenGone = result;
  device->gone = true;
  const std::lock_guard hold(lock);
  std::erase(outputs, device);
}

std::size_t MidiTable::InputCount() {
  const std::lock_guard hold(lock);
  return inputs.size();
}

std::size_t MidiTable::OutputCount() {
  const std::lock_guard hold(lock);
  return outputs.size();
}

std::shared_ptr<InputDevice> MidiTable::InputAt(std::size_t index) {
  const std::lock_guard hold(lock);
  return index < inputs.size() ? inputs[index] : nullptr;
}

std::shared_ptr<OutputDevice> MidiTable::OutputAt(std::size_t index) {
  const std::lock_guard hold(lock);
  return index < outputs.size() ? outputs[index] : nullptr;
}

std::shared_ptr<InputDevice> MidiTable::InputById(int id) {
  const std::lock_guard hold(lock);
  return FindOrThrow(allInputs, id);
}

std::shared_ptr<OutputDevice> MidiTable::OutputById(int id) {
  const std::lock_guard hold(lock);
  return FindOrThrow(allOutputs, id);
}

std::uintptr_t MidiTable::NextHandle() { return lastHandle += 16; }

std::shared_ptr<OpenInput> MidiTable::OpenInputHandle(std::shared_ptr<InputDevice> device,
                                                      DWORD_PTR callback, DWORD_PTR instance) {
  const std::lock_guard hold(lock);
  const auto handle = reinterpret_cast<HMIDIIN>(NextHandle());
  ++device->openHandles;
  auto opened = std::make_shared<OpenInput>(std::move(device), handle, callback, instance);
  inputHandles[handle] = opened;
  return opened;
}

std::shared_ptr<OpenOutput> MidiTable::OpenOutputHandle(std::shared_ptr<OutputDevice> device) {
  const std::lock_guard hold(lock);
  const auto handle = reinterpret_cast<HMIDIOUT>(NextHandle());
  auto opened = std::make_shared<OpenOutput>(std::move(device), handle);
  outputHandles[handle] = opened;
  return opened;
}

std::shared_ptr<OpenInput> MidiTable::Find(HMIDIIN handle) {
  const std::lock_guard hold(lock);
  return FindOrNull(inputHandles, handle);
}

std::shared_ptr<OpenOutput> MidiTable::Find(HMIDIOUT handle) {
  const std::lock_guard hold(lock);
  return FindOrNull(outputHandles, handle);
}

bool MidiTable::Forget(HMIDIIN handle) {
  const std::lock_guard hold(lock);
  const auto found = inputHandles.find(handle);
  if (found == inputHandles.end()) return false;
  --found->second->device->openHandles;
  inputHandles.erase(found);
  return true;
}

bool MidiTable::Forget(HMIDIOUT handle) {
  const std::lock_guard hold(lock);
  return outputHandles.erase(handle) != 0;
}

bool MidiTable::EverOpened(std::uintptr_t handle) {
  const std::lock_guard hold(lock);
  return handle > 0x10000 && handle <= lastHandle;
}

std::vector<std::shared_ptr<OpenInput>> MidiTable::HandlesOf(const InputDevice& device) {
  const std::lock_guard hold(lock);
  std::vector<std::shared_ptr<OpenInput>> found;
  for (const auto& [handle, opened] : inputHandles) {
    if (opened->device.get() == &device) found.push_back(opened);
  }
  return found;
}

std::size_t MidiTable::OpenInputs() {
  const std::lock_guard hold(lock);
  return inputHandles.size();
}

std::size_t MidiTable::OpenOutputs() {
  const std::lock_guard hold(lock);
  return outputHandles.size();
}

void MidiTable::Inject(int id, std::int64_t job, std::vector<InputItem> items, std::int64_t paceUs,
                       std::uint64_t repeat, std::size_t piece, bool stamps) {
  const auto device = InputById(id);
  const bool posted = device->driver.Post([=, this, items = std::move(items)] {
    Pace pace(paceUs);
    std::uint64_t delivered = 0;
    std::uint64_t dropped = 0;
    for (std::uint64_t round = 0; round < repeat && !device->driver.Stopping(); ++round) {
      for (const InputItem& item : items) {
        if (!pace.Next(device->driver)) break;
        if (stamps) Outbox::Get().Recorded('i', id, NowNs(), nullptr, 0);
        bool arrived = false;
        for (const auto& opened : HandlesOf(*device)) arrived |= opened->Deliver(item, piece);
        ++(arrived ? delivered : dropped);
      }
    }
    Outbox::Get().Event("injected " + std::to_string(job) + " " + std::to_string(delivered) + " " +
                        std::to_string(dropped));
  });
  if (!posted) Outbox::Get().Event("injected " + std::to_string(job) + " 0 0");
}

void MidiTable::Feed(const std::shared_ptr<InputDevice>& device, const std::uint8_t* midi,
                     std::size_t size) {
  if (device->openHandles == 0) return;
  device->driver.Post([this, device, bytes = Bytes(midi, midi + size)] {
    for (const InputItem& item : MessagesIn(bytes)) {
      for (const auto& opened : HandlesOf(*device)) opened->Deliver(item, 0);
    }
  });
}

}  // namespace corvalint::desk
