#include "platform/registry.h"

#include "platform/windows/system_headers.h"

namespace corvalint {
namespace {

bool Open(const char* path, RegistryKey* key) {
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &opened) != ERROR_SUCCESS) return false;
  *key = opened;
  return true;
}

bool Read(RegistryKey key, const char* name, void* buffer, std::uint32_t* size,
          std::uint32_t* type) {
  DWORD room = *size;
  DWORD kind = *type;
  const LSTATUS result = RegQueryValueExA(static_cast<HKEY>(key), name, nullptr, &kind,
                                          static_cast<BYTE*>(buffer), &room);
  *size = room;
  *type = kind;
  return result == ERROR_SUCCESS;
}

void Close(RegistryKey* key) {
  if (*key != nullptr) RegCloseKey(static_cast<HKEY>(*key));
  *key = nullptr;
}

}  // namespace

const RegistryApi& RegistryApi::System() {
  static constexpr RegistryApi table{.open = Open, .read = Read, .close = Close};
  return table;
}

}  // namespace corvalint
