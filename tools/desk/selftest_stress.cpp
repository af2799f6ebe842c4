#include "selftest_stress.h"

#include <windows.h>
// windows.h first
#include <mmsystem.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "selftest_support.h"

namespace corvalint::desk {

namespace {

// Callback of the stress threads: hands buffers back to the input as the product does.
void CALLBACK OnStressInput(HMIDIIN handle, UINT message, DWORD_PTR, DWORD_PTR first, DWORD_PTR) {
  if (message != MIM_LONGDATA) return;
  auto* header = reinterpret_cast<MIDIHDR*>(first);
  if (header->dwBytesRecorded != 0) midiInAddBuffer(handle, header, sizeof(*header));
}

void StressInput() {
  HMIDIIN handle = nullptr;
  if (midiInOpen(&handle, 0, reinterpret_cast<DWORD_PTR>(&OnStressInput), 0, CALLBACK_FUNCTION) !=
      0) {
    return;
  }
  MIDIHDR header = {};
  char block[64];
  header.lpData = block;
  header.dwBufferLength = sizeof(block);
  midiInPrepareHeader(handle, &header, sizeof(header));
  midiInAddBuffer(handle, &header, sizeof(header));
  midiInStart(handle);
  Sleep(5);
  midiInStop(handle);
  // A buffer that a callback queued again during the reset comes back with the next one.
  for (int i = 0; i < 10 && midiInReset(handle) == 0; ++i) {
    if (midiInUnprepareHeader(handle, &header, sizeof(header)) == 0) break;
  }
  if (midiInClose(handle) != 0) Hear("an input that does not close");
}

void StressOutput() {
  HMIDIOUT handle = nullptr;
  if (midiOutOpen(&handle, 0, 0, 0, CALLBACK_NULL) != 0) return;
  char block[] = "abc";
  for (int i = 0; i < 50; ++i) {
    MIDIHDR header = {};
    header.lpData = block;
    header.dwBufferLength = 3;
    midiOutPrepareHeader(handle, &header, sizeof(header));
    midiOutLongMsg(handle, &header, sizeof(header));
    while (midiOutUnprepareHeader(handle, &header, sizeof(header)) == MIDIERR_STILLPLAYING) {
      Sleep(1);
    }
  }
  if (midiOutClose(handle) != 0) Hear("an output that does not close");
}

std::atomic<int> portsHeard = 0;

void StressPort(int number) {
  using Callback = void(CALLBACK*)(void*, BYTE*, DWORD, DWORD_PTR);
  using Function = void*(WINAPI*)(LPCWSTR, Callback, DWORD_PTR, DWORD, DWORD);
  const std::wstring name = L"Stress " + std::to_wstring(number);
  const auto create = Bind<Function>("teVirtualMIDI64", "virtualMIDICreatePortEx2");
  const auto send =
      Bind<BOOL(WINAPI*)(void*, BYTE*, DWORD)>("teVirtualMIDI64", "virtualMIDISendData");
  const auto close = Bind<void(WINAPI*)(void*)>("teVirtualMIDI64", "virtualMIDIClosePort");
  void* made = create(
      name.c_str(), [](void*, BYTE*, DWORD, DWORD_PTR) { ++portsHeard; }, 0, 65535, 1);
  if (made == nullptr) return;
  BYTE block[] = {0x90, 1, 2};
  for (int i = 0; i < 50; ++i) send(made, block, sizeof(block));
  Sleep(2);
  close(made);
}

}  // namespace

long long Stress(unsigned long long milliseconds) {
  const ULONGLONG end = GetTickCount64() + milliseconds;
  std::atomic<long long> rounds = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([i, end, &rounds] {
      while (GetTickCount64() < end) {
        if (i % 3 == 0) StressInput();
        if (i % 3 == 1) StressOutput();
        if (i % 3 == 2) StressPort(i);
        ++rounds;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return rounds;
}

}  // namespace corvalint::desk
