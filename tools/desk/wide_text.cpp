#include "wide_text.h"

#include <windows.h>

#include "text.h"

namespace corvalint::desk {

std::string HexOfWide(const std::wstring& text) {
  std::string out;
  for (const wchar_t unit : text) {
    const std::uint8_t pair[2] = {static_cast<std::uint8_t>(unit >> 8),
                                  static_cast<std::uint8_t>(unit & 0xFF)};
    AppendHex(out, pair, 2);
  }
  return out;
}

std::wstring WideFromHex(std::string_view hex) {
  const Bytes bytes = BytesFromHex(hex);
  if (bytes.size() % 2 != 0) throw std::runtime_error("half a UTF-16 unit");
  std::wstring text;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    text.push_back(static_cast<wchar_t>(bytes[i] << 8 | bytes[i + 1]));
  }
  return text;
}

std::string AnsiOf(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string ansi(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), length, ansi.data(), size, nullptr, nullptr);
  return ansi;
}

std::wstring WideOf(const std::string& ansi) {
  const int length = static_cast<int>(ansi.size());
  const int size = MultiByteToWideChar(CP_ACP, 0, ansi.data(), length, nullptr, 0);
  std::wstring text(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, ansi.data(), length, text.data(), size);
  return text;
}

}  // namespace corvalint::desk
