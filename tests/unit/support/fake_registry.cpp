#include "support/fake_registry.h"

#include <gtest/gtest.h>

#include <cstring>

namespace corvalint::test {

namespace {
FakeRegistry* current = nullptr;
}  // namespace

struct FakeRegistry::Table {
  static bool Open(const char* path, RegistryKey* key) {
    current->log.Add("open(" + std::string(path) + ")");
    const auto found = current->keys.find(path);
    if (found == current->keys.end()) return false;
    *key = &found->second;
    ++current->openKeys;
    return true;
  }

  static bool Read(RegistryKey key, const char* name, void* buffer, std::uint32_t* size,
                   std::uint32_t* type) {
    current->log.Add("read(" + std::string(name) + ", size " + std::to_string(*size) + ", type " +
                     std::to_string(*type) + ")");
    EXPECT_NE(key, nullptr) << "a read from a closed key";
    if (key == nullptr) return false;
    const Key& values = *static_cast<const Key*>(key);
    const auto found = values.find(name);
    if (found == values.end() || found->second.bytes.size() > *size) return false;
    std::memcpy(buffer, found->second.bytes.data(), found->second.bytes.size());
    *size = static_cast<std::uint32_t>(found->second.bytes.size());
    *type = found->second.type;
    return true;
  }

  static void Close(RegistryKey* key) {
    current->log.Add(*key == nullptr ? "close(forgotten)" : "close()");
    if (*key != nullptr) --current->openKeys;
    *key = nullptr;
  }
};

FakeRegistry::FakeRegistry(CallLog& callLog) : log(callLog) {
  static constexpr RegistryApi kApi{
      .open = Table::Open, .read = Table::Read, .close = Table::Close};
  EXPECT_EQ(current, nullptr) << "a second fake registry";
  current = this;
  Install<RegistryApi>(&kApi);
}

FakeRegistry::~FakeRegistry() {
  EXPECT_EQ(openKeys, 0) << "a registry key was left open";
  Install<RegistryApi>(nullptr);
  current = nullptr;
}

void FakeRegistry::SetValue(const std::string& path, const std::string& name,
                            const std::string& bytes, std::uint32_t type) {
  keys[path][name] = {bytes, type};
}

}  // namespace corvalint::test
