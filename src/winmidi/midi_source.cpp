#include "winmidi/midi_source.h"

#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "service/console.h"
#include "service/host_time.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr int kCloseAttempts = 50;
constexpr std::uint32_t kCloseRetryMilliseconds = 10;

MidiResult QueueBuffers(MidiInHandle handle, MidiInputBuffers& buffers) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  for (MidiHeader& header : buffers.headers) {
    header.flags = 0;  // whatever an earlier open left there
    MidiResult result = winmm.midiInPrepareHeader(handle, &header, sizeof header);
    if (result == kMidiNoError) result = winmm.midiInAddBuffer(handle, &header, sizeof header);
    if (result != kMidiNoError) return result;
  }
  return kMidiNoError;
}

void UnprepareBuffers(MidiInHandle handle, MidiInputBuffers& buffers) {
  for (MidiHeader& header : buffers.headers) {
    Use<WinMidiApi>().midiInUnprepareHeader(handle, &header, sizeof header);
  }
}

// A driver that still holds buffers answers a close with 65 and closes nothing.
MidiResult ResetAndClose(MidiInHandle handle, MidiInputBuffers& buffers) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  winmm.midiInReset(handle);
  UnprepareBuffers(handle, buffers);
  return winmm.midiInClose(handle);
}

MidiResult RetryClose(MidiInHandle handle, MidiInputBuffers& buffers, MidiResult result) {
  for (int attempt = 0; result == kMidiStillPlaying && attempt < kCloseAttempts; ++attempt) {
    Use<ClockApi>().sleep(kCloseRetryMilliseconds);
    result = ResetAndClose(handle, buffers);
  }
  return result;
}

// The driver may still write into the buffers and call back with their headers and with the source.
// That this cannot fail is why the next open gets new buffers and not this. The source is closing.
void Abandon(MidiEndpointRegistry& registry, const MidiSourcePointer& source) noexcept {
  std::unique_ptr<MidiInputBuffers> buffers;
  {
    CriticalSectionScope hold(registry.bufferQueueLock);
    buffers.swap(source->buffers);
  }
  buffers->usedBy = source;
  registry.KeepForever(std::move(buffers));
  LogError("MIDI input could not be closed: %s", source->name.c_str());
}

// False when there is no memory for buffers in place of those that a driver has kept.
bool HasBuffers(MidiEndpointRegistry& registry, MidiSourceEndpoint& source) try {
  if (source.buffers != nullptr) return true;
  auto buffers = std::make_unique<MidiInputBuffers>();
  CriticalSectionScope hold(registry.bufferQueueLock);
  source.buffers = std::move(buffers);
  return true;
} catch (const std::bad_alloc&) {
  LogError("no memory for MIDI input: %s", source.name.c_str());
  return false;
}

void SetClosing(MidiEndpointRegistry& registry, MidiSourceEndpoint& source, bool closing) {
  CriticalSectionScope hold(registry.bufferQueueLock);
  source.closing = closing;
}

// An open that got stuck halfway. The close comes first; only a driver that refuses it, because
// buffers are queued already, is reset and closed again. The handle field is not cleared.
MidiResult FailOpen(MidiEndpointRegistry& registry, const MidiSourcePointer& source,
                    MidiInHandle handle, MidiResult result) {
  SetClosing(registry, *source, true);
  if (Use<WinMidiApi>().midiInClose(handle) != kMidiNoError) {
    if (RetryClose(handle, *source->buffers, ResetAndClose(handle, *source->buffers)) !=
        kMidiNoError) {
      Abandon(registry, source);
    }
  }
  source->MarkUnavailable();
  return result;
}

// A failure ends here: winmm's frames further up know no exceptions, and a buffer whose bytes could
// not be handed on is queued again all the same.
void HandOn(MidiSourceEndpoint& source, const std::uint8_t* data, std::int32_t length) try {
  MidiDelegate* const receiver = source.registry.delegate;
  if (receiver == nullptr) return;
  receiver->MidiReceived(data, length, source.name, source.uniqueId,
                         static_cast<std::uint64_t>(HostTimeNanoseconds()));
} catch (const std::exception& failure) {
  LogError("MIDI input dropped: %s", failure.what());
}

void ShortMessageReceived(MidiSourceEndpoint& source, std::uintptr_t packed) {
  const std::uint8_t bytes[3] = {static_cast<std::uint8_t>(packed),
                                 static_cast<std::uint8_t>(packed >> 8),
                                 static_cast<std::uint8_t>(packed >> 16)};
  const std::int32_t length = ShortMessageLength(bytes[0]);
  if (length > 0) HandOn(source, bytes, length);
}

// A buffer that comes back empty, as on a reset, is not queued again, nor is any while the device
// is being closed.
void QueueAgain(MidiInHandle handle, MidiSourceEndpoint& source, const MidiHeader& returned) {
  const std::size_t number = returned.user;
  CriticalSectionScope hold(source.registry.bufferQueueLock);
  if (source.closing || number >= kInputBufferCount) return;
  MidiHeader& header = source.buffers->headers[number];
  if (&header != &returned) return;  // a buffer that was abandoned
  Use<WinMidiApi>().midiInAddBuffer(handle, &header, sizeof header);
}

void BufferReturned(MidiInHandle handle, MidiSourceEndpoint& source, const MidiHeader& header) {
  const std::uint32_t count = header.bytesRecorded;
  HandOn(source, reinterpret_cast<const std::uint8_t*>(header.data),
         static_cast<std::int32_t>(count));
  if (count != 0) QueueAgain(handle, source, header);
}

}  // namespace

MidiResult OpenMidiSource(MidiEndpointRegistry& registry, const MidiSourcePointer& source) {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  MidiInHandle handle = nullptr;
  MidiResult result = kMidiNoMemory;
  if (HasBuffers(registry, *source)) {
    SetClosing(registry, *source, false);
    result = winmm.midiInOpen(
        &handle, source->deviceIndex, reinterpret_cast<std::uintptr_t>(&MidiInputCallback),
        reinterpret_cast<std::uintptr_t>(source.get()), kMidiCallbackFunction);
  }
  if (result != kMidiNoError) {
    source->MarkUnavailable();
    return result;
  }
  source->handle = handle;
  source->off = false;
  source->available = true;
  result = QueueBuffers(handle, *source->buffers);
  if (result == kMidiNoError) result = winmm.midiInStart(handle);
  if (result != kMidiNoError) return FailOpen(registry, source, handle, result);

  ConsolePrint("source added %s\n", source->name.c_str());
  if (MidiDelegate* receiver = registry.delegate) receiver->SourceAdded(*source);
  return kMidiNoError;
}

void CloseMidiSource(MidiEndpointRegistry& registry, const MidiSourcePointer& source, bool notify) {
  const MidiInHandle handle = source->handle;
  if (handle == nullptr || !source->available) return;
  SetClosing(registry, *source, true);
  Use<WinMidiApi>().midiInStop(handle);
  const MidiResult result =
      RetryClose(handle, *source->buffers, ResetAndClose(handle, *source->buffers));
  if (result != kMidiNoError) Abandon(registry, source);
  source->handle = nullptr;
  source->off = true;
  MidiDelegate* const receiver = registry.delegate;
  if (notify && receiver != nullptr) receiver->SourceRemoved(*source);
}

std::int32_t ShortMessageLength(std::uint8_t status) {
  if (status < 0x80) return 0;
  if (status < 0xC0) return 3;
  if (status < 0xE0) return 2;
  if (status < 0xF0) return 3;
  switch (status) {
    case 0xF1:  // time code quarter frame
    case 0xF3:  // song select
      return 2;
    case 0xF2:  // song position
      return 3;
    default:
      return 1;
  }
}

void MidiInputCallback(MidiInHandle handle, std::uint32_t message, std::uintptr_t instance,
                       std::uintptr_t parameter1, std::uintptr_t /*parameter2*/) {
  auto& source = *reinterpret_cast<MidiSourceEndpoint*>(instance);
  switch (message) {
    case kMidiInData:
      ShortMessageReceived(source, parameter1);
      break;
    case kMidiInLongData:
    case kMidiInLongError:
      BufferReturned(handle, source, *reinterpret_cast<const MidiHeader*>(parameter1));
      break;
    default:
      break;
  }
}

}  // namespace corvalint
