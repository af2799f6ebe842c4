// A host without standard output, as a program with windows is: it starts itself anew without any
// standard handle, switches what it finds on and off and ends. Its exit code says how far it came.
#include <windows.h>
// Needs windows.h before it.
#include <cstdio>
#include <string>

#include "host/windows_modules.h"
#include "host/windows_wrapper.h"

namespace corvalint::host {
namespace {

constexpr int kDone = 0;
constexpr int kNotStarted = 10;
constexpr int kHasOutput = 11;
constexpr int kNoLists = 12;
constexpr int kNotSwitched = 13;
constexpr int kNoBridge = 14;

constexpr DWORD kPollMilliseconds = 20;
constexpr int kMostPolls = 1000;

bool HasOutput() {
  DWORD written = 0;
  return _fileno(stdout) >= 0 ||
         WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), "x", 1, &written, nullptr);
}

bool WaitForLists(const Wrapper& wrapper) {
  for (int poll = 0; poll < kMostPolls; ++poll) {
    if (wrapper.sources.count() > 0 && wrapper.destinations.count() > 0) return true;
    Sleep(kPollMilliseconds);
  }
  return false;
}

// The first endpoint of a side, on and off again.
bool SwitchesFirst(const SideCalls& side) {
  const int id = side.idAt(0);
  side.toggle(static_cast<unsigned int>(id));
  if (side.status(id) == 0) return false;
  side.toggle(static_cast<unsigned int>(id));
  return side.status(id) == 0;
}

int RunWithoutOutput() try {
  if (HasOutput()) return kHasOutput;
  const Wrapper wrapper = LoadWrapper();
  wrapper.start();
  if (!WaitForLists(wrapper)) return kNoLists;
  const bool switched = SwitchesFirst(wrapper.sources) && SwitchesFirst(wrapper.destinations);
  return switched ? kDone : kNotSwitched;
} catch (const NoLibrary&) {
  return kNoBridge;
}

int StartAnew() {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;  // all three of which are null
  PROCESS_INFORMATION process = {};
  std::wstring command = L"\"" + PathOf(nullptr) + L"\" anew";
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr,
                      nullptr, &startup, &process)) {
    return kNotStarted;
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = kNotStarted;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return static_cast<int>(code);
}

}  // namespace
}  // namespace corvalint::host

int main(int count, char**) {
  return count > 1 ? corvalint::host::RunWithoutOutput() : corvalint::host::StartAnew();
}
