#include "support/fake_library.h"

#include <gtest/gtest.h>

namespace corvalint::test {

namespace {
FakeLibrary* current = nullptr;
}  // namespace

struct FakeLibrary::Table {
  static bool SetDllDirectory(const char* folder) {
    current->log.Add("setDllDirectory(" + std::string(folder) + ")");
    return !current->directoryRefused;
  }

  static LibraryHandle Load(const char* name) {
    current->log.Add("load(" + std::string(name) + ")");
    return current->missing.count(name) != 0 ? nullptr : current;
  }
};

FakeLibrary::FakeLibrary(CallLog& callLog) : log(callLog) {
  static constexpr LibraryApi kApi{.setDllDirectory = Table::SetDllDirectory, .load = Table::Load};
  EXPECT_EQ(current, nullptr) << "a second fake library";
  current = this;
  Install<LibraryApi>(&kApi);
}

FakeLibrary::~FakeLibrary() {
  Install<LibraryApi>(nullptr);
  current = nullptr;
}

}  // namespace corvalint::test
