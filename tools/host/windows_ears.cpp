#include "host/windows_ears.h"

#include <windows.h>
// Needs windows.h before it.
#include <mmsystem.h>

#include <atomic>
#include <memory>

#include "host/windows_text.h"

namespace corvalint::host {
namespace {

// The functions of winmm.dll, looked up so that the program starts on a machine without it.
struct Winmm {
  decltype(&midiInGetNumDevs) count = nullptr;
  decltype(&midiInGetDevCapsW) caps = nullptr;
  decltype(&midiInOpen) open = nullptr;
  decltype(&midiInStart) start = nullptr;
  decltype(&midiInStop) stop = nullptr;
  decltype(&midiInClose) close = nullptr;
};

template <typename Function>
bool Bind(HMODULE module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  return function != nullptr;
}

bool BindAll(Winmm& winmm) {
  HMODULE module = LoadLibraryA("winmm.dll");
  return module != nullptr && Bind(module, "midiInGetNumDevs", winmm.count) &&
         Bind(module, "midiInGetDevCapsW", winmm.caps) && Bind(module, "midiInOpen", winmm.open) &&
         Bind(module, "midiInStart", winmm.start) && Bind(module, "midiInStop", winmm.stop) &&
         Bind(module, "midiInClose", winmm.close);
}

// An input while it is open. The driver counts on a thread of its own.
struct OpenInput {
  HMIDIIN handle = nullptr;
  std::string name;
  MMRESULT refused = 0;
  std::atomic<uint64_t> messages{0};
};

void CALLBACK Count(HMIDIIN, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR) {
  if (message == MIM_DATA) ++reinterpret_cast<OpenInput*>(instance)->messages;
}

void Open(const Winmm& winmm, UINT index, OpenInput& input) {
  MIDIINCAPSW caps = {};
  if (winmm.caps(index, &caps, sizeof caps) == MMSYSERR_NOERROR) {
    input.name = WideToUtf8(caps.szPname);
  }
  input.refused = winmm.open(&input.handle, index, reinterpret_cast<DWORD_PTR>(&Count),
                             reinterpret_cast<DWORD_PTR>(&input), CALLBACK_FUNCTION);
  if (input.refused != MMSYSERR_NOERROR) return;
  input.refused = winmm.start(input.handle);
}

// A driver that keeps the input open may still call, so what it counts in is kept then.
void Close(const Winmm& winmm, std::unique_ptr<OpenInput>& input) {
  if (input->handle == nullptr) return;
  winmm.stop(input->handle);
  if (winmm.close(input->handle) != MMSYSERR_NOERROR) static_cast<void>(input.release());
}

}  // namespace

std::vector<HeardInput> ListenToInputs(int seconds) {
  Winmm winmm;
  if (!BindAll(winmm)) return {};
  std::vector<std::unique_ptr<OpenInput>> inputs;
  UINT count = winmm.count();
  for (UINT index = 0; index < count; ++index) {
    inputs.push_back(std::make_unique<OpenInput>());
    Open(winmm, index, *inputs.back());
  }
  Sleep(static_cast<DWORD>(seconds) * 1000);
  std::vector<HeardInput> heard;
  for (std::unique_ptr<OpenInput>& input : inputs) {
    heard.push_back({input->name, input->messages, input->refused});
    Close(winmm, input);
  }
  return heard;
}

}  // namespace corvalint::host
