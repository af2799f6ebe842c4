#include "midi_output.h"

#include <algorithm>
#include <utility>

#include "clock.h"
#include "midi_messages.h"
#include "outbox.h"

namespace corvalint::desk {

namespace {

void GiveBack(MIDIHDR* header) {
  header->dwFlags &= ~static_cast<DWORD>(MHDR_INQUEUE);
  header->dwFlags |= MHDR_DONE;
}

}  // namespace

OpenOutput::OpenOutput(std::shared_ptr<OutputDevice> owner, HMIDIOUT handleValue)
    : device(std::move(owner)), handle(handleValue) {}

MMRESULT OpenOutput::Prepare(MIDIHDR* header, UINT size) {
  if (header == nullptr || size < sizeof(MIDIHDR) || header->lpData == nullptr) {
    return MMSYSERR_INVALPARAM;
  }
  header->dwFlags |= MHDR_PREPARED;
  return MMSYSERR_NOERROR;
}

MMRESULT OpenOutput::Unprepare(MIDIHDR* header, UINT size) {
  if (header == nullptr || size < sizeof(MIDIHDR)) return MMSYSERR_INVALPARAM;
  const std::lock_guard hold(lock);
  FinishPlayed();
  if (playing.contains(header)) return MIDIERR_STILLPLAYING;
  header->dwFlags &= ~static_cast<DWORD>(MHDR_PREPARED);
  return MMSYSERR_NOERROR;
}

MMRESULT OpenOutput::Long(MIDIHDR* header, UINT size) {
  if (header == nullptr || size < sizeof(MIDIHDR)) return MMSYSERR_INVALPARAM;
  const std::lock_guard hold(lock);
  FinishPlayed();
  if ((header->dwFlags & MHDR_PREPARED) == 0) return MIDIERR_UNPREPARED;
  if ((header->dwFlags & MHDR_INQUEUE) != 0) return MIDIERR_STILLPLAYING;
  Record(reinterpret_cast<const std::uint8_t*>(header->lpData), header->dwBufferLength);
  header->dwFlags &= ~static_cast<DWORD>(MHDR_DONE);
  header->dwFlags |= MHDR_INQUEUE;
  // Messages leave the wire one after another.
  wireFreeNs = std::max(wireFreeNs, NowNs()) + device->playNs;
  playing[header] = wireFreeNs;
  FinishPlayed();
  return MMSYSERR_NOERROR;
}

MMRESULT OpenOutput::Short(DWORD message) {
  std::uint8_t bytes[3];
  for (std::size_t i = 0; i < 3; ++i) bytes[i] = static_cast<std::uint8_t>(message >> (8 * i));
  const std::lock_guard hold(lock);
  Record(bytes, ShortMessageLength(bytes[0]));
  return MMSYSERR_NOERROR;
}

MMRESULT OpenOutput::Reset() {
  const std::lock_guard hold(lock);
  for (const auto& [header, done] : playing) GiveBack(header);
  playing.clear();
  wireFreeNs = 0;
  return MMSYSERR_NOERROR;
}

MMRESULT OpenOutput::Close() {
  const std::lock_guard hold(lock);
  FinishPlayed();
  return playing.empty() ? MMSYSERR_NOERROR : static_cast<MMRESULT>(MIDIERR_STILLPLAYING);
}

void OpenOutput::Record(const std::uint8_t* data, std::size_t length) {
  ++device->messages;
  device->bytes += length;
  Outbox::Get().Recorded('o', device->id, NowNs(), data, length);
  if (device->sink) device->sink(Bytes(data, data + length));
}

void OpenOutput::FinishPlayed() {
  if (playing.empty() || device->stuck) return;
  const std::int64_t now = NowNs();
  std::erase_if(playing, [now](const auto& entry) {
    if (entry.second > now) return false;
    GiveBack(entry.first);
    return true;
  });
}

}  // namespace corvalint::desk
