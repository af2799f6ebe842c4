#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "platform/process.h"
#include "support/call_log.h"
#include "support/temp_folder.h"

namespace corvalint::test {

// A scripted process whose files lie in a folder of the test, installed for as long as it lives;
// one at a time. It notes:
//   executablePath(), openFile(C:\host\pellora.log, a+), pinModule(), sharpenTimers()
// Any thread.
class FakeProcess {
 public:
  explicit FakeProcess(CallLog& callLog);
  ~FakeProcess();
  FakeProcess(const FakeProcess&) = delete;
  FakeProcess& operator=(const FakeProcess&) = delete;

  void SetExecutablePath(std::string path);
  // Runs inside executablePath, and may throw.
  void WhenAskedForPath(std::function<void()> action);
  // No file can be opened from now on, or they can again.
  void RefuseFiles(bool refuse);

  // The name, in Folder(), of the file that stands for a path: the path with ':' and '\' as '_'.
  static std::string NameOf(const std::string& path);
  const TempFolder& Folder() const { return folder; }

 private:
  struct Table;
  static FakeProcess& Current();

  CallLog& log;
  const TempFolder folder;
  std::mutex mutex;
  std::string executable = "C:\\host\\host.exe";
  std::function<void()> pathAction;
  bool refusing = false;
};

}  // namespace corvalint::test
