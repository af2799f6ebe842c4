#include "support/midi_desk.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include "service/console.h"
#include "winmidi/midi_destination.h"
#include "winmidi/midi_source.h"

namespace corvalint::test {

namespace {

std::string Hex(const void* data, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, "%02X",
                  static_cast<unsigned>(static_cast<const unsigned char*>(data)[i]));
    text += (i == 0 ? "" : " ") + std::string(byte);
  }
  return text;
}

void PrintEndpoint(const char* what, const MidiEndpoint& endpoint) {
  ConsolePrint("<%s %s %d %s>", what, endpoint.name.c_str(), endpoint.uniqueId,
               endpoint.off ? "off" : "on");
}

}  // namespace

// --- latch

void Latch::Open() {
  const std::lock_guard hold(mutex);
  open = true;
  changed.notify_all();
}

bool Latch::Wait() {
  std::unique_lock hold(mutex);
  const bool opened = changed.wait_for(hold, std::chrono::seconds(30), [this] { return open; });
  EXPECT_TRUE(opened) << "nobody opened the latch";
  return opened;
}

// --- delegate

void RecordingDelegate::MidiReceived(const std::uint8_t* data, std::int32_t length,
                                     const std::string& name, std::int32_t uniqueId,
                                     std::uint64_t timestamp) {
  std::function<void()> now;
  {
    const std::lock_guard hold(mutex);
    received.push_back(name + " " + std::to_string(uniqueId) + ": " +
                       Hex(data, static_cast<std::size_t>(length)) + " at " +
                       std::to_string(timestamp));
    now = action;
  }
  if (now) now();
}

void RecordingDelegate::SourceAdded(const MidiEndpoint& source) {
  PrintEndpoint("source added", source);
}

void RecordingDelegate::SourceRemoved(const MidiEndpoint& source) {
  PrintEndpoint("source removed", source);
}

void RecordingDelegate::DestinationAdded(const MidiEndpoint& destination) {
  PrintEndpoint("destination added", destination);
}

void RecordingDelegate::DestinationRemoved(const MidiEndpoint& destination) {
  PrintEndpoint("destination removed", destination);
}

std::vector<std::string> RecordingDelegate::TakeReceived() {
  const std::lock_guard hold(mutex);
  return std::exchange(received, {});
}

void RecordingDelegate::WhenReceiving(std::function<void()> newAction) {
  const std::lock_guard hold(mutex);
  action = std::move(newAction);
}

// --- server

DeskServer::DeskServer() {
  midiLock = &midi;
  clients.Append(device);
  theUsbServer = this;
}

DeskServer::~DeskServer() { theUsbServer = nullptr; }

bool DeskServer::AnyManagerOwns(const std::string& endpointName) {
  EXPECT_EQ(midi.HoldsOfThisThread(), 1u);
  EXPECT_EQ(clientLock.HoldsOfThisThread(), 0u);
  EXPECT_EQ(scans, 1);
  ConsolePrint("?%s ", endpointName.c_str());
  if (whenAsked) whenAsked();
  for (const std::string& name : published) {
    if (name == endpointName) return true;
  }
  return false;
}

void DeskServer::ExpectNoLockHeld() {
  EXPECT_EQ(midi.HoldsOfThisThread(), 0u);
  EXPECT_EQ(clientLock.HoldsOfThisThread(), 0u);
}

// --- desk

MidiDesk::MidiDesk() {
  registry.delegate = &delegate;
  clock.StepPerRead(10);
}

MidiSourcePointer MidiDesk::AddSource(const std::string& name, std::uint32_t number,
                                      std::int32_t id) {
  auto source = std::make_shared<MidiSourceEndpoint>(registry);
  source->name = name;
  source->deviceIndex = number;
  source->uniqueId = id;
  CriticalSectionScope hold(registry.listLock);
  registry.Append(source);
  return source;
}

MidiDestinationPointer MidiDesk::AddDestination(const std::string& name, std::uint32_t number,
                                                std::int32_t id) {
  auto destination = std::make_shared<MidiDestinationEndpoint>();
  destination->name = name;
  destination->deviceIndex = number;
  destination->uniqueId = id;
  CriticalSectionScope hold(registry.listLock);
  registry.Append(destination);
  return destination;
}

MidiResult MidiDesk::Open(const MidiSourcePointer& source) {
  CriticalSectionScope hold(registry.deviceLock);
  return OpenMidiSource(registry, source);
}

MidiResult MidiDesk::Open(const MidiDestinationPointer& destination) {
  CriticalSectionScope hold(registry.deviceLock);
  return OpenMidiDestination(registry, *destination);
}

void MidiDesk::Close(const MidiSourcePointer& source, bool notify) {
  CriticalSectionScope hold(registry.deviceLock);
  CloseMidiSource(registry, source, notify);
}

void MidiDesk::Forget() {
  winmm.TakeCalls();
  Printed();
}

}  // namespace corvalint::test
