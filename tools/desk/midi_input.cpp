#include "midi_input.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "outbox.h"

namespace corvalint::desk {

OpenInput::OpenInput(std::shared_ptr<InputDevice> owner, HMIDIIN handleValue, DWORD_PTR function,
                     DWORD_PTR instanceValue)
    : device(std::move(owner)), handle(handleValue), callback(function), instance(instanceValue) {}

MMRESULT OpenInput::Prepare(MIDIHDR* header, UINT size) {
  if (header == nullptr || size < sizeof(MIDIHDR) || header->lpData == nullptr) {
    return MMSYSERR_INVALPARAM;
  }
  const std::lock_guard hold(lock);
  header->dwFlags |= MHDR_PREPARED;
  prepared.insert(header);
  return MMSYSERR_NOERROR;
}

MMRESULT OpenInput::Unprepare(MIDIHDR* header, UINT size) {
  if (header == nullptr || size < sizeof(MIDIHDR)) return MMSYSERR_INVALPARAM;
  const std::lock_guard hold(lock);
  if (std::find(queue.begin(), queue.end(), header) != queue.end()) return MIDIERR_STILLPLAYING;
  header->dwFlags &= ~static_cast<DWORD>(MHDR_PREPARED);
  prepared.erase(header);
  return MMSYSERR_NOERROR;
}

MMRESULT OpenInput::Add(MIDIHDR* header, UINT size) {
  if (header == nullptr || size < sizeof(MIDIHDR)) return MMSYSERR_INVALPARAM;
  const std::lock_guard hold(lock);
  if ((header->dwFlags & MHDR_PREPARED) == 0) return MIDIERR_UNPREPARED;
  if ((header->dwFlags & MHDR_INQUEUE) != 0) return MIDIERR_STILLPLAYING;
  header->dwFlags &= ~static_cast<DWORD>(MHDR_DONE);
  header->dwFlags |= MHDR_INQUEUE;
  header->dwBytesRecorded = 0;
  queue.push_back(header);
  return MMSYSERR_NOERROR;
}

MMRESULT OpenInput::Start() {
  const std::lock_guard hold(lock);
  if (std::exchange(started, true)) return MMSYSERR_NOERROR;
  startTick = GetTickCount();
  Outbox::Get().Event("input " + std::to_string(device->id) + " started");
  return MMSYSERR_NOERROR;
}

MMRESULT OpenInput::Stop() {
  std::unique_lock hold(lock);
  WaitForCallback(hold, "midiInStop");
  if (std::exchange(started, false)) {
    Outbox::Get().Event("input " + std::to_string(device->id) + " stopped");
  }
  // A buffer that holds the beginning of a message goes back; untouched ones stay queued.
  if (!queue.empty() && queue.front()->dwBytesRecorded != 0) {
    MIDIHDR* header = TakeFront();
    Call(hold, MIM_LONGDATA, reinterpret_cast<DWORD_PTR>(header), Milliseconds());
  }
  return MMSYSERR_NOERROR;
}

MMRESULT OpenInput::Reset() {
  std::unique_lock hold(lock);
  WaitForCallback(hold, "midiInReset");
  if (std::exchange(started, false)) {
    Outbox::Get().Event("input " + std::to_string(device->id) + " stopped");
  }
  // Buffers that callbacks queue again meanwhile stay queued.
  for (std::size_t left = queue.size(); left > 0 && !queue.empty(); --left) {
    MIDIHDR* header = TakeFront();
    Call(hold, MIM_LONGDATA, reinterpret_cast<DWORD_PTR>(header), Milliseconds());
  }
  return MMSYSERR_NOERROR;
}

MMRESULT OpenInput::Close() {
  std::unique_lock hold(lock);
  WaitForCallback(hold, "midiInClose");
  if (!queue.empty()) return MIDIERR_STILLPLAYING;
  started = false;
  if (!prepared.empty()) {
    Outbox::Get().Event("left-prepared " + std::to_string(prepared.size()));
  }
  return MMSYSERR_NOERROR;
}

bool OpenInput::Deliver(const InputItem& item, std::size_t piece) {
  switch (item.kind) {
    case InputItem::Kind::kShort:
    case InputItem::Kind::kShortError:
      return DeliverShort(item);
    case InputItem::Kind::kLong:
    case InputItem::Kind::kLongError:
    case InputItem::Kind::kPartial:
      return DeliverLong(item, piece);
  }
  return false;
}

bool OpenInput::DeliverShort(const InputItem& item) {
  DWORD_PTR packed = 0;
  for (std::size_t i = 0; i < item.bytes.size() && i < 4; ++i) {
    packed |= static_cast<DWORD_PTR>(item.bytes[i]) << (8 * i);
  }
  std::unique_lock hold(lock);
  idle.wait(hold, [this] { return !busy; });
  if (!started || device->gone) return false;
  const UINT message = item.kind == InputItem::Kind::kShort ? MIM_DATA : MIM_ERROR;
  Call(hold, message, packed, Milliseconds());
  return true;
}

bool OpenInput::DeliverLong(const InputItem& item, std::size_t piece) {
  std::size_t position = 0;
  do {
    std::unique_lock hold(lock);
    idle.wait(hold, [this] { return !busy; });
    if (!started || device->gone || queue.empty()) return false;
    MIDIHDR* header = queue.front();
    const std::size_t room = header->dwBufferLength - header->dwBytesRecorded;
    std::size_t count = std::min(item.bytes.size() - position, room);
    if (piece != 0) count = std::min(count, piece);
    std::memcpy(header->lpData + header->dwBytesRecorded, item.bytes.data() + position, count);
    header->dwBytesRecorded += static_cast<DWORD>(count);
    position += count;
    if (item.kind == InputItem::Kind::kPartial &&
        header->dwBytesRecorded < header->dwBufferLength) {
      continue;  // the message goes on later
    }
    TakeFront();
    const UINT message = item.kind == InputItem::Kind::kLongError ? MIM_LONGERROR : MIM_LONGDATA;
    Call(hold, message, reinterpret_cast<DWORD_PTR>(header), Milliseconds());
  } while (position < item.bytes.size());
  return true;
}

void OpenInput::Announce(UINT message) {
  std::unique_lock hold(lock);
  WaitForCallback(hold, "midiInOpen/Close");
  Call(hold, message, 0, 0);
}

OpenInput::State OpenInput::GetState() {
  const std::lock_guard hold(lock);
  return {started, queue.size(), prepared.size()};
}

void OpenInput::WaitForCallback(std::unique_lock<std::mutex>& hold, const char* caller) {
  if (busy && busyThread == GetCurrentThreadId()) {
    // The real library never comes back from this.
    Outbox::Get().Violation(std::string(caller) + " inside the callback of its own input");
    return;
  }
  idle.wait(hold, [this] { return !busy; });
}

void OpenInput::Call(std::unique_lock<std::mutex>& hold, UINT message, DWORD_PTR first,
                     DWORD_PTR second) {
  const bool outer = !busy;
  busy = true;
  busyThread = GetCurrentThreadId();
  hold.unlock();
  if (callback != 0) {
    using Callback = void(CALLBACK*)(HMIDIIN, UINT, DWORD_PTR, DWORD_PTR, DWORD_PTR);
    reinterpret_cast<Callback>(callback)(handle, message, instance, first, second);
  }
  hold.lock();
  if (!outer) return;
  busy = false;
  idle.notify_all();
}

MIDIHDR* OpenInput::TakeFront() {
  MIDIHDR* header = queue.front();
  queue.pop_front();
  header->dwFlags &= ~static_cast<DWORD>(MHDR_INQUEUE);
  header->dwFlags |= MHDR_DONE;
  return header;
}

DWORD_PTR OpenInput::Milliseconds() const { return GetTickCount() - startTick; }

}  // namespace corvalint::desk
