#include "host/windows_system.h"

#include <windows.h>
// Needs windows.h before it.
#include <fcntl.h>
#include <io.h>

#include <atomic>
#include <iostream>
#include <mutex>
#include <thread>
#include <utility>

#include "host/windows_text.h"
#include "windows/process_counts.h"

namespace corvalint::host {
namespace {

constexpr ULONGLONG kAskedRecentlyMilliseconds = 1000;
constexpr size_t kMostKept = size_t{1} << 20;

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
  counts.handles = static_cast<int64_t>(windows::OpenHandles().size());
  counts.threads = static_cast<int64_t>(windows::CountThreads());
  return counts;
}

template <typename Function>
void Bind(HMODULE module, const char* name, Function& function) {
  FARPROC address = GetProcAddress(module, name);
  if (address == nullptr) {
    throw NoLibrary(std::string("corvalint_wrapper.dll has no export ") + name +
                    ": it is another library");
  }
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

// What the library has printed, if it is kept. Never destroyed: its reader runs until the end.
struct Kept {
  std::mutex lock;
  std::string lines;
};

Kept& TheKept() {
  static auto* const kept = new Kept;
  return *kept;
}

void ReadLines(int pipe) {
  Kept& kept = TheKept();
  char piece[4096];
  for (int size = 0; (size = _read(pipe, piece, sizeof piece)) > 0;) {
    const std::lock_guard hold(kept.lock);
    kept.lines.append(piece, static_cast<size_t>(size));
    if (kept.lines.size() > kMostKept) kept.lines.erase(0, kept.lines.size() - kMostKept);
  }
}

// The end of a pipe whose other end is read until the program ends; -1 if there is none to be had.
int KeepLines() {
  int ends[2];
  if (_pipe(ends, 1 << 16, _O_BINARY | _O_NOINHERIT) != 0) return -1;
  std::thread(ReadLines, ends[0]).detach();
  return ends[1];
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

Wrapper LoadWrapper() {
  std::wstring path = ProgramFolder() + L"corvalint_wrapper.dll";
  HMODULE module = LoadLibraryW(path.c_str());
  if (module == nullptr) {
    throw NoLibrary(WideToUtf8(path) + " cannot be loaded: " + ErrorText(GetLastError()));
  }
  Wrapper calls;
  Bind(module, "corvalintServerStart", calls.start);
  Bind(module, "corvalintServerWiFiClients", calls.wifiClients);
  Bind(module, "corvalintServerUSBClients", calls.usbClients);
  Bind(module, "corvalintServerScriptActive", calls.scriptActive);
  Bind(module, "corvalintServerActiveConnections", calls.activeConnections);
  Bind(module, "initliaze_port_control", calls.portControl);
  Bind(module, "corvalintServerGetCountOfSources", calls.sources.count);
  Bind(module, "get_unique_id_source", calls.sources.idAt);
  Bind(module, "get_source_name_length", calls.sources.nameLength);
  Bind(module, "corvalintServerGetActiveMIDISourceName", calls.sources.nameByte);
  Bind(module, "set_source_status", calls.sources.toggle);
  Bind(module, "get_source_status", calls.sources.status);
  Bind(module, "get_source_available", calls.sources.available);
  Bind(module, "corvalintServerGetCountOfDestinations", calls.destinations.count);
  Bind(module, "get_unique_id_destination", calls.destinations.idAt);
  Bind(module, "get_dest_name_length", calls.destinations.nameLength);
  Bind(module, "corvalintServerGetActiveMIDIDestName", calls.destinations.nameByte);
  Bind(module, "set_destination_status", calls.destinations.toggle);
  Bind(module, "get_destination_status", calls.destinations.status);
  Bind(module, "get_destination_available", calls.destinations.available);
  return calls;
}

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

std::FILE* SeparateOutput(LibraryLines lines, bool asBytes) {
  std::fflush(stdout);
  int own = _dup(1);
  if (own < 0) return nullptr;
  int library = -1;
  if (lines == LibraryLines::kKept) {
    library = KeepLines();
  } else {
    library = lines == LibraryLines::kToStderr ? _dup(2) : _open("NUL", _O_WRONLY);
  }
  if (library < 0 || _dup2(library, 1) != 0) return nullptr;
  _close(library);
  return _fdopen(own, asBytes ? "wb" : "w");
}

std::string KeptLines() {
  Kept& kept = TheKept();
  const std::lock_guard hold(kept.lock);
  return kept.lines;
}

std::string TakeKeptLines() {
  Kept& kept = TheKept();
  const std::lock_guard hold(kept.lock);
  return std::exchange(kept.lines, {});
}

int TerminalColumns(std::FILE* file) {
  auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
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
