#include "host/windows_modules.h"

namespace corvalint::host {

std::wstring PathOf(HMODULE module) {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

std::wstring ProgramFolder() {
  const std::wstring path = PathOf(nullptr);
  return path.substr(0, path.find_last_of(L'\\') + 1);
}

}  // namespace corvalint::host
