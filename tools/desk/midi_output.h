#pragma once

#include <windows.h>
// windows.h first
#include <mmsystem.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "text.h"

namespace corvalint::desk {

// A MIDI output device that applications can see. Never destroyed, like InputDevice.
struct OutputDevice {
  int id = 0;
  std::string name;
  std::wstring wideName;
  std::function<void(Bytes)> sink;  // an output that is a virtual port passes its data on
  std::atomic<bool> gone = false;
  std::atomic<MMRESULT> resultWhenGone = MMSYSERR_NOERROR;
  std::atomic<std::int64_t> playNs = 0;  // how long a long message keeps its buffer
  std::atomic<bool> stuck = false;       // buffers are kept until this is cleared or by a reset
  std::atomic<std::uint64_t> messages = 0;
  std::atomic<std::uint64_t> bytes = 0;
};

// One open handle of an output device. A long message is recorded when it is handed over and keeps
// its buffer for the device's playing time.
class OpenOutput {
 public:
  OpenOutput(std::shared_ptr<OutputDevice> owner, HMIDIOUT handleValue);

  MMRESULT Prepare(MIDIHDR* header, UINT size);
  MMRESULT Unprepare(MIDIHDR* header, UINT size);
  MMRESULT Long(MIDIHDR* header, UINT size);
  MMRESULT Short(DWORD message);
  MMRESULT Reset();
  MMRESULT Close();

  const std::shared_ptr<OutputDevice> device;
  const HMIDIOUT handle;

 private:
  void Record(const std::uint8_t* data, std::size_t length);
  void FinishPlayed();

  std::mutex lock;
  std::map<MIDIHDR*, std::int64_t> playing;  // with the time when it has been played
  std::int64_t wireFreeNs = 0;               // when the wire has sent all that it was given
};

}  // namespace corvalint::desk
