#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvalint::harness {

// How long a condition may take before a test is told that it did not come true.
inline constexpr std::chrono::milliseconds kPatience{20000};

// A program with its standard streams in pipes. Nothing that it starts outlives it, this object, or
// the process that holds this object. All operations may be called from any thread.
class Process {
 public:
  struct Setup {
    std::vector<std::string> command;
    std::map<std::string, std::string> environment;  // added to the present one
    std::filesystem::path directory;
  };

  // Throws std::runtime_error if it cannot be started.
  explicit Process(const Setup& setup);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // False if the program does not listen any more.
  bool Write(std::string_view text);
  void CloseInput();

  // Everything written so far, byte for byte.
  std::string Output();
  std::string Errors();

  // Waits until the condition holds for what was written so far; false when time is up, or when the
  // program ended without it.
  using Condition = std::function<bool(const std::string&)>;
  bool WaitForOutput(const Condition& condition, std::chrono::milliseconds limit = kPatience);
  bool WaitForErrors(const Condition& condition, std::chrono::milliseconds limit = kPatience);

  // The exit code (128 + signal number if a signal ended it), empty while it runs.
  std::optional<int> WaitForExit(std::chrono::milliseconds limit = kPatience);
  bool Running();

  // Ends the program and all that it started, and waits for that.
  void Kill();

 private:
  struct Stream {
    int fd = -1;
    std::string text;
    bool ended = false;
    std::thread reader;
  };

  void Launch(const Setup& setup);
  void Read(Stream& stream);
  bool WaitFor(Stream& stream, const Condition& condition, std::chrono::milliseconds limit);
  void Watch();

  std::mutex lock;
  std::condition_variable changed;
  Stream output;
  Stream errors;
  std::mutex inputLock;
  int inputFd = -1;
  int lifeFd = -1;
  pid_t keeper = -1;
  std::optional<int> exitCode;
  std::thread watcher;
};

}  // namespace corvalint::harness
