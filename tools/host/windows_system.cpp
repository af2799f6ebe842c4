#include "host/windows_system.h"

#include <windows.h>
// Needs windows.h before it.
#include <io.h>

#include <atomic>
#include <cstdint>
#include <iostream>
#include <string>

#include "host/windows_text.h"
#include "windows/process_counts.h"

namespace corvalint::host {
namespace {

constexpr ULONGLONG kAskedRecentlyMilliseconds = 1000;

// Shared with the thread on which the system reports Ctrl-C.
std::atomic<ULONGLONG> lastAsked{0};
std::atomic<bool> interrupted{false};

BOOL WINAPI NoteInterrupt(DWORD event) {
  if (event != CTRL_C_EVENT) return FALSE;
  if (lastAsked == 0 || GetTickCount64() - lastAsked > kAskedRecentlyMilliseconds) return FALSE;
  interrupted = true;
  return TRUE;
}

bool TakeInterrupt() {
  lastAsked = GetTickCount64();
  return interrupted.exchange(false);
}

// Handles first: the list of threads is itself a handle while it is read.
ProcessCounts CountProcess() {
  ProcessCounts counts;
  counts.handles = static_cast<std::int64_t>(windows::OpenHandles().size());
  counts.threads = static_cast<std::int64_t>(windows::CountThreads());
  return counts;
}

std::optional<std::string> ReadConsoleLine(HANDLE console) {
  wchar_t text[1024];
  DWORD length = 0;
  if (!ReadConsoleW(console, text, 1024, &length, nullptr) || length == 0) return std::nullopt;
  if (text[0] == L'\x1A') return std::nullopt;
  while (length > 0 && (text[length - 1] == L'\n' || text[length - 1] == L'\r')) --length;
  return WideToUtf8(std::wstring(text, length));
}

}  // namespace

System MakeSystem() {
  SetConsoleCtrlHandler(NoteInterrupt, TRUE);
  System system;
  system.ansiToUtf8 = AnsiToUtf8;
  system.processCounts = CountProcess;
  system.sleep = [](int milliseconds) { Sleep(static_cast<DWORD>(milliseconds)); };
  system.takeInterrupt = TakeInterrupt;
  system.columns = [] { return 0; };
  system.processId = GetCurrentProcessId();
  return system;
}

int TerminalColumns(std::FILE* file) {
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(handle, &info)) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

bool InputIsConsole() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

std::optional<std::string> ReadInputLine() {
  if (InputIsConsole()) return ReadConsoleLine(GetStdHandle(STD_INPUT_HANDLE));
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  return line;
}

Utf8Console::Utf8Console() : codePageBefore(GetConsoleOutputCP()) { SetConsoleOutputCP(CP_UTF8); }

Utf8Console::~Utf8Console() {
  if (codePageBefore != 0) SetConsoleOutputCP(codePageBefore);
}

}  // namespace corvalint::host
