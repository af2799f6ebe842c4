#include "platform/process.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include "platform/windows/modules.h"
#include "platform/windows/system_headers.h"

#include <mmsystem.h>

namespace corvalint {
namespace {

std::wstring WideFromUtf8(const char* text) {
  const int units = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
  if (units <= 1) return {};
  std::wstring wide(static_cast<std::size_t>(units), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text, -1, wide.data(), units);
  wide.pop_back();  // the terminator
  return wide;
}

// The text in a code page.
std::string FromWide(const std::wstring& wide, UINT codePage) {
  const int units = static_cast<int>(wide.size());
  if (units == 0) return {};
  const int size =
      WideCharToMultiByte(codePage, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(codePage, 0, wide.data(), units, text.data(), size, nullptr, nullptr);
  return text;
}

std::string ExecutablePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) {  // 0 on failure; a path that was cut fills the buffer
      path.resize(length);
      return FromWide(path, CP_UTF8);
    }
    path.resize(path.size() * 2);
  }
}

// What `fopen` does for a mode, without its translation of line ends and without inheritance.
int OpenFlags(const std::string& mode) {
  const bool update = mode.find('+') != std::string::npos;
  const int common = _O_BINARY | _O_NOINHERIT;
  if (mode[0] == 'r') return common | (update ? _O_RDWR : _O_RDONLY);
  const int writing = common | _O_CREAT | (update ? _O_RDWR : _O_WRONLY);
  return writing | (mode[0] == 'a' ? _O_APPEND : _O_TRUNC);
}

std::FILE* OpenFile(const char* path, const char* mode) {
  const int file = _wopen(WideFromUtf8(path).c_str(), OpenFlags(mode), _S_IREAD | _S_IWRITE);
  if (file < 0) return nullptr;
  std::FILE* const stream = _fdopen(file, (std::string(mode) + 'b').c_str());
  if (stream == nullptr) _close(file);
  return stream;
}

void PinModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&PinModule), &module);
}

// Looked up, so that no load of this library can fail for it.
void SharpenTimers() {
  MMRESULT(WINAPI * begin)(UINT) = nullptr;
  if (Bind(FindModule("winmm.dll"), "timeBeginPeriod", begin)) begin(1);
}

std::string AnsiFromLatin1(const std::string& latin1) {
  std::wstring wide;
  wide.reserve(latin1.size());
  for (const char byte : latin1) wide += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  return FromWide(wide, CP_ACP);
}

}  // namespace

const ProcessApi& ProcessApi::System() {
  static constexpr ProcessApi table{
      .executablePath = ExecutablePath,
      .openFile = OpenFile,
      .pinModule = PinModule,
      .sharpenTimers = SharpenTimers,
      .ansiFromLatin1 = AnsiFromLatin1,
  };
  return table;
}

}  // namespace corvalint
