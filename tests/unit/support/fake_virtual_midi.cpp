#include "support/fake_virtual_midi.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <utility>

namespace corvalint::test {

namespace {

std::atomic<FakeVirtualMidi*> current{nullptr};

int Number(VirtualMidiHandle handle) {
  return static_cast<int>(reinterpret_cast<std::uintptr_t>(handle));
}

VirtualMidiHandle Handle(int number) {
  return reinterpret_cast<VirtualMidiHandle>(static_cast<std::uintptr_t>(number));
}

// Units above a byte are shown as question marks: the library never makes any.
std::string Narrow(const std::u16string& wide) {
  std::string bytes;
  for (const char16_t unit : wide) bytes += unit < 256 ? static_cast<char>(unit) : '?';
  return bytes;
}

std::string Hex(const std::uint8_t* data, std::uint32_t length) {
  std::string text;
  for (std::uint32_t i = 0; i < length; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, "%02X", static_cast<unsigned>(data[i]));
    text += (i == 0 ? "" : " ") + std::string(byte);
  }
  return text;
}

}  // namespace

FakeVirtualMidi::FakeVirtualMidi()
    : api{.virtualMIDICreatePortEx2 = Create,
          .virtualMIDISendData = Send,
          .virtualMIDIClosePort = Close} {
  current = this;
  Install<VirtualMidiApi>(&api);
}

FakeVirtualMidi::~FakeVirtualMidi() {
  Install<VirtualMidiApi>(nullptr);
  current = nullptr;
  for (const std::string& call : calls) ADD_FAILURE() << "driver call not claimed: " << call;
}

void FakeVirtualMidi::RefusePorts(bool refusePorts) {
  std::lock_guard hold(mutex);
  refuse = refusePorts;
}

void FakeVirtualMidi::AllowEqualNames() {
  std::lock_guard hold(mutex);
  equalNames = true;
}

void FakeVirtualMidi::AnswerSendsWith(std::int32_t answer) {
  std::lock_guard hold(mutex);
  sendAnswer = answer;
}

void FakeVirtualMidi::WhenCreating(std::function<void(int)> action) {
  std::lock_guard hold(mutex);
  whenCreating = std::move(action);
}

void FakeVirtualMidi::WhenClosing(std::function<void(int)> action) {
  std::lock_guard hold(mutex);
  whenClosing = std::move(action);
}

void FakeVirtualMidi::WhenSending(std::function<void(int)> action) {
  std::lock_guard hold(mutex);
  whenSending = std::move(action);
}

FakeVirtualMidi::Calls FakeVirtualMidi::TakeCalls() {
  std::lock_guard hold(mutex);
  return std::exchange(calls, {});
}

FakeVirtualMidi::Creation FakeVirtualMidi::Created(int port) const {
  std::lock_guard hold(mutex);
  return ports.at(port).creation;
}

bool FakeVirtualMidi::Write(int port, Bytes bytes) {
  {
    std::lock_guard hold(mutex);
    Port& written = ports.at(port);
    if (!written.open) return false;
    ++written.callbacksRunning;
  }
  CallBack(port, std::move(bytes));
  std::lock_guard hold(mutex);
  --ports.at(port).callbacksRunning;
  callbackEnded.notify_all();
  return true;
}

void FakeVirtualMidi::CallBack(int port, Bytes bytes) {
  VirtualMidiCallback callback;
  std::uintptr_t instance;
  {
    std::lock_guard hold(mutex);
    callback = ports.at(port).callback;
    instance = ports.at(port).instance;
  }
  callback(Handle(port), bytes.data(), static_cast<std::uint32_t>(bytes.size()), instance);
}

bool FakeVirtualMidi::MayOpen(const std::u16string& name) const {
  if (refuse) return false;
  if (equalNames) return true;
  for (const auto& [number, port] : ports) {
    if (port.open && port.creation.name == name) return false;
  }
  return true;
}

VirtualMidiHandle FakeVirtualMidi::Create(const char16_t* name, VirtualMidiCallback callback,
                                          std::uintptr_t instance, std::uint32_t maximumSysex,
                                          std::uint32_t flags) {
  FakeVirtualMidi& driver = *current;
  std::unique_lock hold(driver.mutex);
  const int number = static_cast<int>(driver.ports.size()) + 1;
  Port& port = driver.ports[number];
  port.creation = {name, maximumSysex, flags};
  port.callback = callback;
  port.instance = instance;
  port.open = driver.MayOpen(port.creation.name);
  const bool opened = port.open;
  driver.calls.push_back("create(" + Narrow(port.creation.name) +
                         ") = " + std::to_string(opened ? number : 0));
  const auto action = driver.whenCreating;
  hold.unlock();
  if (action) action(number);
  return opened ? Handle(number) : nullptr;
}

std::int32_t FakeVirtualMidi::Send(VirtualMidiHandle handle, const std::uint8_t* data,
                                   std::uint32_t length) {
  FakeVirtualMidi& driver = *current;
  const int number = Number(handle);
  std::unique_lock hold(driver.mutex);
  const auto action = driver.whenSending;
  hold.unlock();
  if (action) action(number);
  hold.lock();
  driver.calls.push_back("send(" + std::to_string(number) + ", " + Hex(data, length) + ")");
  if (number != 0 && !driver.ports[number].open) {
    ADD_FAILURE() << "bytes sent into the closed port " << number;
  }
  return driver.sendAnswer;
}

void FakeVirtualMidi::Close(VirtualMidiHandle handle) {
  FakeVirtualMidi& driver = *current;
  const int number = Number(handle);
  std::unique_lock hold(driver.mutex);
  driver.calls.push_back("close(" + std::to_string(number) + ")");
  Port& port = driver.ports[number];
  if (!port.open) ADD_FAILURE() << "port " << number << " closed, which is not open";
  const auto action = driver.whenClosing;
  hold.unlock();
  if (action) action(number);
  hold.lock();
  if (!driver.callbackEnded.wait_for(hold, std::chrono::seconds(20),
                                     [&] { return port.callbacksRunning == 0; })) {
    ADD_FAILURE() << "the close of port " << number << " waits for a callback that never ends";
  }
  port.open = false;
}

}  // namespace corvalint::test
