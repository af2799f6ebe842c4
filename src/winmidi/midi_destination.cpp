#include "winmidi/midi_destination.h"

#include <atomic>

#include "platform/clock.h"
#include "service/console.h"
#include "service/log.h"

namespace corvalint {

namespace {

// How long a driver may take to give a block back after it was reset, in milliseconds.
constexpr int kPatienceAfterReset = 1000;

void PrintFailure(MidiResult result) {
  switch (result) {
    case kMidiInvalidParameter:
      return ConsolePrint("MMSYSERR_INVALPARAM\n");
    case kMidiInvalidHandle:
      return ConsolePrint("MMSYSERR_INVALHANDLE\n");
    case kMidiNoMemory:
      return ConsolePrint("MMSYSERR_NOMEM\n");
    default:
      return;
  }
}

// Says that a message is on its way out, whatever ends it.
class SendingScope {
 public:
  explicit SendingScope(std::atomic<bool>& flag) : sending(flag) { sending = true; }
  ~SendingScope() { sending.store(false, std::memory_order_release); }
  SendingScope(const SendingScope&) = delete;
  SendingScope& operator=(const SendingScope&) = delete;

 private:
  std::atomic<bool>& sending;
};

// Waits until the driver gives the block back, 21 seconds for a long block at MIDI's own speed.
// While the device is being closed its closer resets it, and the wait ends soon. False when the
// driver keeps the block even then.
bool WaitForBlock(MidiDestinationEndpoint& destination, MidiOutHandle handle, MidiHeader& header) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  int patience = kPatienceAfterReset;
  while (winmm.midiOutUnprepareHeader(handle, &header, sizeof header) == kMidiStillPlaying) {
    if (destination.closing && --patience == 0) return false;
    Use<ClockApi>().sleep(1);
  }
  return true;
}

MidiResult SendBlock(MidiDestinationEndpoint& destination)
    CORVALINT_REQUIRES(destination.outputLock) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  // A device on its way out counts as closed already.
  const MidiOutHandle handle = destination.closing ? nullptr : destination.handle.load();
  MidiHeader& header = destination.block->header;
  MidiResult result = winmm.midiOutPrepareHeader(handle, &header, sizeof header);
  if (result != kMidiNoError) return result;
  result = winmm.midiOutLongMsg(handle, &header, sizeof header);
  if (result != kMidiNoError) return result;
  if (!WaitForBlock(destination, handle, header)) {
    LogError("MIDI output keeps its data: %s", destination.name.c_str());
    // Leaked, since the driver may still read from it.
    static_cast<void>(destination.block.release());
  }
  return kMidiNoError;
}

}  // namespace

MidiResult OpenMidiDestination(MidiEndpointRegistry& registry,
                               MidiDestinationEndpoint& destination) {
  MidiOutHandle handle = nullptr;
  const MidiResult result =
      Use<WinMidiApi>().midiOutOpen(&handle, destination.deviceIndex, 0, 0, kMidiCallbackNull);
  if (result != kMidiNoError) {
    destination.MarkUnavailable();
    return result;
  }
  destination.handle = handle;
  destination.off = false;
  destination.available = true;
  if (MidiDelegate* receiver = registry.delegate) receiver->DestinationAdded(destination);
  ConsolePrint("destination added %s\n", destination.name.c_str());
  return kMidiNoError;
}

void CloseMidiDestination(MidiDestinationEndpoint& destination) {
  const MidiOutHandle handle = destination.handle;
  if (handle == nullptr) return;
  const WinMidiApi& winmm = Use<WinMidiApi>();
  // Whoever sends raises `sending` before it looks at `closing`, so one of the two sees the other.
  // A driver may block inside the send or keep the block; a reset frees both, once it has begun.
  destination.closing = true;
  while (destination.sending) {
    winmm.midiOutReset(handle);
    Use<ClockApi>().sleep(1);
  }
  // Nobody uses the handle by now, and who comes until it is gone sees `closing`.
  winmm.midiOutClose(handle);
  destination.handle = nullptr;
  destination.off = true;
  destination.closing = false;
}

bool SendToMidiDestinations(const std::vector<MidiDestinationPointer>& destinations,
                            const std::uint8_t* data, std::uint32_t length) {
  for (const auto& destination : destinations) SendLongMidi(*destination, data, length);
  return !destinations.empty();
}

void SendLongMidi(MidiDestinationEndpoint& destination, const std::uint8_t* data,
                  std::uint32_t length) {
  MidiResult result;
  {
    CriticalSectionScope hold(destination.outputLock);
    const SendingScope sending(destination.sending);
    if (destination.block == nullptr) destination.block = std::make_unique<MidiOutputBlock>();
    MidiOutputBlock& block = *destination.block;
    // The driver reads from the block's own copy, which outlives a driver that does not give it
    // back.
    const auto* const bytes = reinterpret_cast<const char*>(data);
    block.data.assign(bytes, bytes + length);  // of one type, so that it is one copy
    block.header = MidiHeader{};
    block.header.data = block.data.data();
    block.header.bufferLength = length;
    result = SendBlock(destination);
  }
  if (result != kMidiNoError) PrintFailure(result);
}

}  // namespace corvalint
