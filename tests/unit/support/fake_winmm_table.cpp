#include <utility>

#include "support/fake_winmm.h"

namespace corvalint::test {

// The functions that stand in the table: each passes its call on to the living FakeWinmm.
struct FakeWinmm::Table {
  static std::uint32_t InGetNumDevs() {
    return Current().CountDevices("midiInGetNumDevs", Current().inputs);
  }
  static std::uint32_t OutGetNumDevs() {
    return Current().CountDevices("midiOutGetNumDevs", Current().outputs);
  }
  static MidiResult InGetDevCaps(std::uintptr_t number, MidiInCaps* caps, std::uint32_t size) {
    return Current().Describe("midiInGetDevCapsA", number, caps, size, Current().inputs);
  }
  static MidiResult OutGetDevCaps(std::uintptr_t number, MidiOutCaps* caps, std::uint32_t size) {
    return Current().Describe("midiOutGetDevCapsA", number, caps, size, Current().outputs);
  }
  static MidiResult InOpen(MidiInHandle* handle, std::uint32_t number, std::uintptr_t callback,
                           std::uintptr_t instance, std::uint32_t flags) {
    return Current().Open(handle, number, true, callback, instance, flags);
  }
  static MidiResult OutOpen(MidiOutHandle* handle, std::uint32_t number, std::uintptr_t callback,
                            std::uintptr_t instance, std::uint32_t flags) {
    return Current().Open(handle, number, false, callback, instance, flags);
  }
  static MidiResult InClose(MidiInHandle handle) { return Current().Close("midiInClose", handle); }
  static MidiResult OutClose(MidiOutHandle handle) {
    return Current().Close("midiOutClose", handle);
  }
  static MidiResult InPrepare(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Prepare("midiInPrepareHeader", handle, header, size);
  }
  static MidiResult OutPrepare(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Prepare("midiOutPrepareHeader", handle, header, size);
  }
  static MidiResult InUnprepare(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Unprepare("midiInUnprepareHeader", handle, header, size);
  }
  static MidiResult OutUnprepare(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Unprepare("midiOutUnprepareHeader", handle, header, size);
  }
  static MidiResult InAddBuffer(MidiInHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Queue("midiInAddBuffer", handle, header, size);
  }
  static MidiResult OutLongMsg(MidiOutHandle handle, MidiHeader* header, std::uint32_t size) {
    return Current().Queue("midiOutLongMsg", handle, header, size);
  }
  static MidiResult InStart(MidiInHandle handle) {
    return Current().SetStarted("midiInStart", handle, true);
  }
  static MidiResult InStop(MidiInHandle handle) {
    return Current().SetStarted("midiInStop", handle, false);
  }
  static MidiResult InReset(MidiInHandle handle) { return Current().Reset("midiInReset", handle); }
  static MidiResult OutReset(MidiOutHandle handle) {
    return Current().Reset("midiOutReset", handle);
  }

  static constexpr WinMidiApi kApi{
      .midiInGetNumDevs = InGetNumDevs,
      .midiInGetDevCapsA = InGetDevCaps,
      .midiInOpen = InOpen,
      .midiInClose = InClose,
      .midiInPrepareHeader = InPrepare,
      .midiInUnprepareHeader = InUnprepare,
      .midiInAddBuffer = InAddBuffer,
      .midiInStart = InStart,
      .midiInStop = InStop,
      .midiInReset = InReset,
      .midiOutGetNumDevs = OutGetNumDevs,
      .midiOutGetDevCapsA = OutGetDevCaps,
      .midiOutOpen = OutOpen,
      .midiOutClose = OutClose,
      .midiOutPrepareHeader = OutPrepare,
      .midiOutUnprepareHeader = OutUnprepare,
      .midiOutLongMsg = OutLongMsg,
      .midiOutReset = OutReset,
  };
};

const WinMidiApi& FakeWinmm::Api() { return Table::kApi; }

// --- the script and the log

void FakeWinmm::SetInputs(std::vector<std::string> names) {
  const std::lock_guard hold(mutex);
  inputs = std::move(names);
}

void FakeWinmm::SetOutputs(std::vector<std::string> names) {
  const std::lock_guard hold(mutex);
  outputs = std::move(names);
}

void FakeWinmm::Fail(const std::string& function, MidiResult result, int times, int skip) {
  const std::lock_guard hold(mutex);
  failures[function].push_back({result, times, skip});
}

void FakeWinmm::WhenCalled(const std::string& function, std::function<void()> action) {
  const std::lock_guard hold(mutex);
  actions[function] = std::move(action);
}

FakeWinmm::Calls FakeWinmm::TakeCalls() {
  const std::lock_guard hold(mutex);
  return std::exchange(calls, {});
}

int FakeWinmm::Count(const std::string& function) const {
  const std::lock_guard hold(mutex);
  const auto entry = counts.find(function);
  return entry == counts.end() ? 0 : entry->second;
}

std::unique_ptr<MidiResult> FakeWinmm::Begin(const char* function, const std::string& arguments) {
  std::function<void()> action;
  std::unique_ptr<MidiResult> answer;
  {
    const std::lock_guard hold(mutex);
    calls.push_back(std::string(function) + "(" + arguments + ")");
    ++counts[function];
    for (Failure& failure : failures[function]) {
      if (failure.times == 0) continue;
      if (failure.skip > 0) {
        --failure.skip;
      } else {
        --failure.times;
        answer = std::make_unique<MidiResult>(failure.result);
      }
      break;
    }
    const auto entry = actions.find(function);
    if (entry != actions.end()) action = entry->second;
  }
  if (action) action();
  return answer;
}

}  // namespace corvalint::test
