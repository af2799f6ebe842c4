#pragma once

#include <windows.h>
// windows.h first
#include <mmsystem.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "text.h"
#include "worker.h"

namespace corvalint::desk {

// A MIDI input device that applications can see. Never destroyed, so a late caller meets a device
// that is gone instead of freed memory.
struct InputDevice {
  int id = 0;
  std::string name;       // ANSI
  std::wstring wideName;  // UTF-16
  Worker driver;          // runs injected input
  std::atomic<bool> gone = false;
  std::atomic<MMRESULT> resultWhenGone = MMSYSERR_NOERROR;
  std::atomic<int> openHandles = 0;
};

// What a driver does with an open input, as items of one injection.
struct InputItem {
  enum class Kind { kShort, kShortError, kLong, kLongError, kPartial };
  Kind kind = Kind::kShort;
  Bytes bytes;
};

// One open handle of an input device, with the rules of the real library: one callback at a time;
// Stop, Reset and Close wait for a callback in progress; Reset gives the queued buffers back empty;
// Close refuses while buffers are queued. No lock is held during a callback.
class OpenInput {
 public:
  OpenInput(std::shared_ptr<InputDevice> owner, HMIDIIN handleValue, DWORD_PTR function,
            DWORD_PTR instanceValue);

  MMRESULT Prepare(MIDIHDR* header, UINT size);
  MMRESULT Unprepare(MIDIHDR* header, UINT size);
  MMRESULT Add(MIDIHDR* header, UINT size);
  MMRESULT Start();
  MMRESULT Stop();
  MMRESULT Reset();
  MMRESULT Close();

  // Delivers one item on the calling (driver) thread, long data in pieces of at most `piece` bytes
  // (0: as much as a buffer holds). False if any part found no started handle or no free buffer.
  bool Deliver(const InputItem& item, std::size_t piece);

  void Announce(UINT message);  // MIM_OPEN, MIM_CLOSE

  const std::shared_ptr<InputDevice> device;
  const HMIDIIN handle;

  // Counters for the test.
  struct State {
    bool started = false;
    std::size_t queued = 0;
    std::size_t prepared = 0;
  };
  State GetState();

 private:
  void WaitForCallback(std::unique_lock<std::mutex>& hold, const char* caller);
  void Call(std::unique_lock<std::mutex>& hold, UINT message, DWORD_PTR first, DWORD_PTR second);
  bool DeliverShort(const InputItem& item);
  bool DeliverLong(const InputItem& item, std::size_t piece);
  MIDIHDR* TakeFront();
  DWORD_PTR Milliseconds() const;

  const DWORD_PTR callback;
  const DWORD_PTR instance;
  std::mutex lock;
  std::condition_variable idle;
  std::deque<MIDIHDR*> queue;
  std::set<MIDIHDR*> prepared;
  bool started = false;
  bool busy = false;
  DWORD busyThread = 0;
  DWORD startTick = 0;
};

}  // namespace corvalint::desk
