#include "platform/registry.h"

namespace corvalint {
namespace {

bool Open(const char*, RegistryKey*) { return false; }

bool Read(RegistryKey, const char*, void*, std::uint32_t*, std::uint32_t*) { return false; }

void Close(RegistryKey* key) { *key = nullptr; }

}  // namespace

const RegistryApi& RegistryApi::System() {
  static constexpr RegistryApi table{.open = Open, .read = Read, .close = Close};
  return table;
}

}  // namespace corvalint
