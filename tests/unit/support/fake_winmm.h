#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/winmm_api.h"

namespace corvalint::test {

// A scripted winmm, installed for as long as it lives. It logs every call; a test claims the whole
// log with TakeCalls, and what it left unclaimed fails it. Handles are shown by their device's
// name:
//   midiInGetNumDevs(), midiInGetDevCapsA(0), midiInOpen(0), midiInPrepareHeader(Keys, 2),
//   midiInReset(Keys), midiOutOpen(1), midiOutLongMsg(Synth, 90 3C 7F), midiOutClose(Synth)
//
// It behaves as the real one where it matters: a reset gives the queued buffers back through the
// callback; a reset or close waits for a callback that is running; closing while a buffer is queued
// is refused with 65. A driver's buffers are watched: a header that is queued unprepared or twice,
// a wrong size and any use of a closed handle fail the test. Any thread.
class FakeWinmm {
 public:
  using Calls = std::vector<std::string>;
  using Bytes = std::vector<std::uint8_t>;

  FakeWinmm();
  ~FakeWinmm();
  FakeWinmm(const FakeWinmm&) = delete;
  FakeWinmm& operator=(const FakeWinmm&) = delete;

  // What is plugged in, in the order of winmm's numbers. Open handles stay valid. A name of 32
  // bytes or more fills the whole field, without a zero byte.
  void SetInputs(std::vector<std::string> names);
  void SetOutputs(std::vector<std::string> names);

  // Lets calls of that function answer `result` and do nothing else: `times` of them, after `skip`
  // others went through.
  void Fail(const std::string& function, MidiResult result, int times = 1, int skip = 0);
  // Runs inside every call of that function, before the call's own work and with no lock held.
  void WhenCalled(const std::string& function, std::function<void()> action);

  // The calls since the last time, oldest first.
  Calls TakeCalls();
  // How often the function was called, claimed or not.
  int Count(const std::string& function) const;

  // --- the desktop plays; false when the device is not open and started, or has no buffer queued
  bool PlayShort(const std::string& input, std::uint32_t packed);
  // Fills the buffer that was queued first and gives it back.
  bool PlayLong(const std::string& input, const Bytes& bytes,
                std::uint32_t message = kMidiInLongData);
  // Any callback message at all.
  bool CallBack(const std::string& input, std::uint32_t message, std::uintptr_t parameter1);
  // Begins a system-exclusive message that has no end yet: a reset gives the first buffer back with
  // these bytes in it.
  void PlayUnfinished(const std::string& input, const Bytes& bytes);
  // The headers that the driver holds, in order.
  std::vector<MidiHeader*> Queued(const std::string& input) const;
  // From now on a reset gives no buffer back.
  void KeepBuffersForever(const std::string& input);

  // --- the desktop listens
  // Every block that was sent, in order.
  std::vector<Bytes> Sent(const std::string& output) const;
  // From now on the driver keeps every block until a reset, or for ever with `ignoreReset`.
  void HoldBlocks(const std::string& output, bool ignoreReset = false);
  // The blocks that are held, read at this moment.
  std::vector<Bytes> HeldBlocks(const std::string& output) const;

  // Names of the devices whose handles are open, inputs first.
  std::vector<std::string> OpenDevices() const;

 private:
  struct Device {
    std::string name;
    bool input = false;
    bool open = true;
    bool started = false;
    MidiInCallback callback = nullptr;
    std::uintptr_t instance = 0;
    int callbacksRunning = 0;
    Bytes unfinished;
    std::vector<MidiHeader*> queue;
  };
  struct Failure {
    MidiResult result;
    int times;
    int skip;
  };
  struct Table;

  static FakeWinmm& Current();
  static const WinMidiApi& Api();

  // Logs the call and runs its action; the scripted answer, or null for the usual one.
  std::unique_ptr<MidiResult> Begin(const char* function, const std::string& arguments);
  std::string NameOf(void* handle) const;
  Device* DeviceOf(void* handle, const char* function);
  Device* OpenDevice(const std::string& name, bool input) const;
  std::string HeaderText(void* handle, const MidiHeader* header) const;

  MidiResult Open(void** handle, std::uint32_t number, bool input, std::uintptr_t callback,
                  std::uintptr_t instance, std::uint32_t flags);
  MidiResult Close(const char* function, void* handle);
  MidiResult Reset(const char* function, void* handle);
  MidiResult SetStarted(const char* function, void* handle, bool started);
  MidiResult Prepare(const char* function, void* handle, MidiHeader* header, std::uint32_t size);
  MidiResult Unprepare(const char* function, void* handle, MidiHeader* header, std::uint32_t size);
  MidiResult Queue(const char* function, void* handle, MidiHeader* header, std::uint32_t size);
  template <class Caps>
  MidiResult Describe(const char* function, std::uintptr_t number, Caps* caps, std::uint32_t size,
                      const std::vector<std::string>& names);
  std::uint32_t CountDevices(const char* function, const std::vector<std::string>& names);

  // The caller has counted the callback as running already.
  void RunCallback(Device& device, std::uint32_t message, std::uintptr_t parameter1);
  void WaitForCallbacks(Device& device, std::unique_lock<std::mutex>& hold);

  mutable std::mutex mutex;
  std::condition_variable callbackEnded;
  std::vector<std::string> inputs;
  std::vector<std::string> outputs;
  std::map<std::string, std::vector<Failure>> failures;
  std::map<std::string, std::function<void()>> actions;
  Calls calls;
  std::map<std::string, int> counts;
  std::vector<std::unique_ptr<Device>> devices;  // one for each open, kept after its close
  std::map<std::string, std::vector<Bytes>> sent;
  std::set<std::string> holding, deafToReset, keeping;
};

}  // namespace corvalint::test
