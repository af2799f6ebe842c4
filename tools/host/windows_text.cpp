#include "host/windows_text.h"

#include <cstddef>

#include <windows.h>

namespace corvalint::host {
namespace {

std::wstring FromBytes(const std::string& bytes, unsigned int codePage) {
  const int size = static_cast<int>(bytes.size());
  const int length = MultiByteToWideChar(codePage, 0, bytes.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(codePage, 0, bytes.data(), size, wide.data(), length);
  return wide;
}

std::string ToBytes(const std::wstring& text, unsigned int codePage) {
  const int size = static_cast<int>(text.size());
  const int length =
      WideCharToMultiByte(codePage, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(codePage, 0, text.data(), size, bytes.data(), length, nullptr, nullptr);
  return bytes;
}

}  // namespace

std::string WideToUtf8(const std::wstring& text) { return ToBytes(text, CP_UTF8); }

std::wstring Utf8ToWide(const std::string& text) { return FromBytes(text, CP_UTF8); }

std::string AnsiToUtf8(const std::string& bytes) { return WideToUtf8(FromBytes(bytes, CP_ACP)); }

std::string Utf8ToAnsi(const std::string& text) { return ToBytes(Utf8ToWide(text), CP_ACP); }

std::string ErrorText(unsigned long error) {
  wchar_t text[512] = L"";
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                error, 0, text, 512, nullptr);
  while (length > 0 && text[length - 1] <= L' ') --length;
  return WideToUtf8(std::wstring(text, length)) + " (" + std::to_string(error) + ")";
}

}  // namespace corvalint::host
