#include "support/fake_process.h"

#include <gtest/gtest.h>

#include <atomic>
#include <utility>

namespace corvalint::test {

namespace {
std::atomic<FakeProcess*> current{nullptr};
}  // namespace

struct FakeProcess::Table {
  static std::string ExecutablePath() {
    FakeProcess& self = Current();
    self.log.Add("executablePath()");
    std::function<void()> action;
    std::string path;
    {
      const std::lock_guard hold(self.mutex);
      action = self.pathAction;
      path = self.executable;
    }
    if (action) action();
    return path;
  }

  static std::FILE* OpenFile(const char* path, const char* mode) {
    FakeProcess& self = Current();
    self.log.Add("openFile(" + std::string(path) + ", " + mode + ")");
    {
      const std::lock_guard hold(self.mutex);
      if (self.refusing) return nullptr;
    }
    return std::fopen(self.folder.PathOf(NameOf(path)).c_str(), mode);
  }

  static const ProcessApi& Get() {
    static constexpr ProcessApi table{
        .executablePath = ExecutablePath,
        .openFile = OpenFile,
        .pinModule = [] { Current().log.Add("pinModule()"); },
        .sharpenTimers = [] { Current().log.Add("sharpenTimers()"); },
        .ansiFromLatin1 = [](const std::string& latin1) { return latin1; },
    };
    return table;
  }
};

FakeProcess::FakeProcess(CallLog& callLog) : log(callLog) {
  EXPECT_EQ(current.exchange(this), nullptr) << "a second fake process";
  Install<ProcessApi>(&Table::Get());
}

FakeProcess::~FakeProcess() {
  Install<ProcessApi>(nullptr);
  current = nullptr;
}

FakeProcess& FakeProcess::Current() { return *current.load(); }

void FakeProcess::SetExecutablePath(std::string path) {
  const std::lock_guard hold(mutex);
  executable = std::move(path);
}

void FakeProcess::WhenAskedForPath(std::function<void()> action) {
  const std::lock_guard hold(mutex);
  pathAction = std::move(action);
}

void FakeProcess::RefuseFiles(bool refuse) {
  const std::lock_guard hold(mutex);
  refusing = refuse;
}

std::string FakeProcess::NameOf(const std::string& path) {
  std::string name = path;
  for (char& c : name) {
    if (c == ':' || c == '\\') c = '_';
  }
  return name;
}

}  // namespace corvalint::test
