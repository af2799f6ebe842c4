#include "host/windows_doctor.h"

#include <windows.h>

#include <share.h>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

#include "host/windows_ears.h"
#include "host/windows_library_lines.h"
#include "host/windows_modules.h"
#include "host/windows_text.h"
#include "host/windows_wrapper.h"

namespace corvalint::host {
namespace {

std::wstring LogPath() { return ProgramFolder() + L"pellora.log"; }

// The log is opened as the bridge will do it, and not changed.
std::string RefusalOfLog() {
  const HANDLE file =
      CreateFileW(LogPath().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ErrorText(GetLastError());
  CloseHandle(file);
  return {};
}

std::string ReadLog() {
  std::string text;
  std::FILE* const file = _wfsopen(LogPath().c_str(), L"rb", _SH_DENYNO);
  if (file == nullptr) return text;
  char piece[4096];
  for (std::size_t size = 0; (size = std::fread(piece, 1, sizeof piece, file)) > 0;) {
    text.append(piece, size);
  }
  std::fclose(file);
  return text;
}

// A log that has become too long is begun again.
std::string LogFrom(std::size_t start) {
  const std::string text = ReadLog();
  return start <= text.size() ? text.substr(start) : text;
}

std::optional<std::string> ReadRegistry(const char* key, const char* value) {
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &opened) != ERROR_SUCCESS) return {};
  char text[4096] = "";
  DWORD size = sizeof text - 1;
  const LSTATUS result =
      RegQueryValueExA(opened, value, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(opened);
  if (result != ERROR_SUCCESS) return {};
  return AnsiToUtf8(text);
}

std::string VersionOf(const std::wstring& path) {
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), nullptr);
  std::vector<char> data(size);
  VS_FIXEDFILEINFO* info = nullptr;
  UINT length = 0;
  if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, data.data()) ||
      !VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&info), &length)) {
    return {};
  }
  return std::to_string(HIWORD(info->dwFileVersionMS)) + '.' +
         std::to_string(LOWORD(info->dwFileVersionMS)) + '.' +
         std::to_string(HIWORD(info->dwFileVersionLS)) + '.' +
         std::to_string(LOWORD(info->dwFileVersionLS));
}

LibraryFinding Found(HMODULE module) {
  const std::wstring path = PathOf(module);
  return {WideToUtf8(path), VersionOf(path), {}};
}

// Never freed: libraries with threads of their own do not bear it.
LibraryFinding Load(const std::string& name, const std::vector<const char*>& exports) {
  const HMODULE module = LoadLibraryA(Utf8ToAnsi(name).c_str());
  if (module == nullptr) return {{}, {}, name + " cannot be loaded: " + ErrorText(GetLastError())};
  LibraryFinding library = Found(module);
  for (const char* function : exports) {
    if (GetProcAddress(module, function) != nullptr) continue;
    library.failure = library.path + " has no export " + function;
    break;
  }
  return library;
}

std::string RefusalOfPort() {
  using Create = void*(WINAPI*)(const wchar_t* name, void* callback, DWORD_PTR instance,
                                DWORD maxSysex, DWORD flags);
  using Close = void(WINAPI*)(void* port);
  const HMODULE driver = GetModuleHandleA("teVirtualMIDI64.dll");
  const auto create = ExportOf<Create>(driver, "virtualMIDICreatePortEx2");
  const auto close = ExportOf<Close>(driver, "virtualMIDIClosePort");
  const std::wstring name = L"corvalint doctor " + std::to_wstring(GetCurrentProcessId());
  void* const port = create(name.c_str(), nullptr, 0, 65535, 1);
  if (port == nullptr) return ErrorText(GetLastError());
  close(port);
  return {};
}

MidiCounts CountMidi() {
  const HMODULE winmm = GetModuleHandleA("winmm.dll");
  return {ExportOf<UINT(WINAPI*)()>(winmm, "midiInGetNumDevs")(),
          ExportOf<UINT(WINAPI*)()>(winmm, "midiOutGetNumDevs")()};
}

}  // namespace

Instruments MakeInstruments() {
  const auto bridge = std::make_shared<Wrapper>();
  const std::size_t logStart = ReadLog().size();
  Instruments hands;
  hands.folder = [] {
    const std::wstring folder = ProgramFolder();
    return WideToUtf8(folder.substr(0, folder.size() - 1));
  };
  hands.logRefusal = RefusalOfLog;
  hands.bindBridge = [bridge]() -> LibraryFinding {
    try {
      *bridge = LoadWrapper();
    } catch (const NoLibrary& failure) {
      return {{}, {}, failure.what()};
    }
    return Found(GetModuleHandleW(L"corvalint_wrapper.dll"));
  };
  hands.registryText = ReadRegistry;
  hands.searchIn = [](const std::string& folder) { SetDllDirectoryA(Utf8ToAnsi(folder).c_str()); };
  hands.load = Load;
  hands.portRefusal = RefusalOfPort;
  hands.countMidi = CountMidi;
  hands.startBridge = [bridge] { bridge->start(); };
  hands.devices = [bridge] { return bridge->usbClients(); };
  hands.log = [logStart] { return AnsiToUtf8(LogFrom(logStart)); };
  hands.console = [] { return AnsiToUtf8(KeptLines()); };
  hands.listen = ListenToInputs;
  hands.sleep = [](int milliseconds) { Sleep(static_cast<DWORD>(milliseconds)); };
  return hands;
}

}  // namespace corvalint::host
