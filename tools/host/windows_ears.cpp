#include "host/windows_ears.h"

#include <windows.h>
// Needs windows.h before it.
#include <mmsystem.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "host/windows_modules.h"
#include "host/windows_text.h"

namespace corvalint::host {
namespace {

// The functions of winmm.dll, looked up so that the program starts on a machine without it.
struct Winmm {
  decltype(&midiInGetNumDevs) count = nullptr;
  decltype(&midiInGetDevCapsA) ansiCaps = nullptr;
  decltype(&midiInGetDevCapsW) caps = nullptr;
  decltype(&midiInOpen) open = nullptr;
  decltype(&midiInStart) start = nullptr;
  decltype(&midiInStop) stop = nullptr;
  decltype(&midiInClose) close = nullptr;
};

template <typename Function>
bool Bind(HMODULE module, const char* name, Function& function) {
  function = ExportOf<Function>(module, name);
  return function != nullptr;
}

// Null if the library is not there or lacks one of them.
const Winmm* TheWinmm() {
  static const Winmm* const found = []() -> const Winmm* {
    static Winmm winmm;
    const HMODULE module = LoadLibraryA("winmm.dll");
    const bool bound =
        module != nullptr && Bind(module, "midiInGetNumDevs", winmm.count) &&
        Bind(module, "midiInGetDevCapsA", winmm.ansiCaps) &&
        Bind(module, "midiInGetDevCapsW", winmm.caps) && Bind(module, "midiInOpen", winmm.open) &&
        Bind(module, "midiInStart", winmm.start) && Bind(module, "midiInStop", winmm.stop) &&
        Bind(module, "midiInClose", winmm.close);
    return bound ? &winmm : nullptr;
  }();
  return found;
}

// An input while it is open. The driver counts on a thread of its own.
struct OpenInput {
  HMIDIIN handle = nullptr;
  MMRESULT refused = 0;
  std::atomic<std::uint64_t> messages{0};
};

void CALLBACK Count(HMIDIIN, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR) {
  if (message == MIM_DATA) ++reinterpret_cast<OpenInput*>(instance)->messages;
}

void Open(const Winmm& winmm, UINT number, OpenInput& input) {
  input.refused = winmm.open(&input.handle, number, reinterpret_cast<DWORD_PTR>(&Count),
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

std::string NameOf(const Winmm& winmm, UINT number) {
  MIDIINCAPSW caps = {};
  if (winmm.caps(number, &caps, sizeof caps) != MMSYSERR_NOERROR) return {};
  return WideToUtf8(caps.szPname);
}

std::string AnsiNameOf(const Winmm& winmm, UINT number) {
  MIDIINCAPSA caps = {};
  if (winmm.ansiCaps(number, &caps, sizeof caps) != MMSYSERR_NOERROR) return {};
  return caps.szPname;
}

class WinmmEar : public InputEar {
 public:
  WinmmEar(const Winmm& functions, UINT number)
      : winmm(functions), input(std::make_unique<OpenInput>()) {
    Open(winmm, number, *input);
  }
  ~WinmmEar() override { Close(winmm, input); }
  std::uint32_t Refused() const override { return input->refused; }
  // To start what is started does nothing, but tells whether the driver still answers.
  bool Alive() const override { return winmm.start(input->handle) == MMSYSERR_NOERROR; }
  std::uint64_t Messages() const override { return input->messages; }

 private:
  const Winmm& winmm;
  std::unique_ptr<OpenInput> input;
};

}  // namespace

std::vector<HeardInput> ListenToInputs(int seconds) {
  const Winmm* const winmm = TheWinmm();
  if (winmm == nullptr) return {};
  std::vector<std::unique_ptr<WinmmEar>> ears;
  std::vector<HeardInput> heard;
  const UINT count = winmm->count();
  for (UINT number = 0; number < count; ++number) {
    heard.push_back({NameOf(*winmm, number), 0, 0});
    ears.push_back(std::make_unique<WinmmEar>(*winmm, number));
  }
  Sleep(static_cast<DWORD>(seconds) * 1000);
  for (UINT number = 0; number < count; ++number) {
    heard[number].messages = ears[number]->Messages();
    heard[number].refused = ears[number]->Refused();
  }
  return heard;
}

std::vector<MidiInput> ListInputs() {
  const Winmm* const winmm = TheWinmm();
  std::vector<MidiInput> inputs;
  const UINT count = winmm == nullptr ? 0 : winmm->count();
  for (UINT number = 0; number < count; ++number) {
    inputs.push_back({AnsiNameOf(*winmm, number), NameOf(*winmm, number)});
  }
  return inputs;
}

std::unique_ptr<InputEar> OpenInputEar(std::size_t number, const MidiInput& expected) {
  const Winmm* const winmm = TheWinmm();
  if (winmm == nullptr) return nullptr;
  auto ear = std::make_unique<WinmmEar>(*winmm, static_cast<UINT>(number));
  // The numbers may have moved since the inputs were listed.
  if (AnsiNameOf(*winmm, static_cast<UINT>(number)) != expected.nameBytes) return nullptr;
  return ear;
}

}  // namespace corvalint::host
