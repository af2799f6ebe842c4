#pragma once

#include <map>
#include <string>

#include "platform/registry.h"
#include "support/call_log.h"

namespace corvalint::test {

// A scripted registry, installed for as long as it lives; one at a time. It notes:
//   open(SOFTWARE\Maker\Product), read(InstallDir, size 4096, type 1), close(), close(forgotten)
// where the last one is the close of a key that was closed before. For one thread.
class FakeRegistry {
 public:
  explicit FakeRegistry(CallLog& callLog);
  ~FakeRegistry();
  FakeRegistry(const FakeRegistry&) = delete;
  FakeRegistry& operator=(const FakeRegistry&) = delete;

  void AddKey(const std::string& path) { keys[path]; }
  // The value's bytes, copied as they are: a text without a zero byte gets none. Type 1 is a text.
  void SetValue(const std::string& path, const std::string& name, const std::string& bytes,
                std::uint32_t type = 1);

 private:
  struct Value {
    std::string bytes;
    std::uint32_t type;
  };
  using Key = std::map<std::string, Value>;
  struct Table;

  CallLog& log;
  std::map<std::string, Key> keys;
  int openKeys = 0;
};

}  // namespace corvalint::test
