#pragma once

#include <string>
#include <vector>

namespace corvalint {

// Prints to the process's standard output, nothing else: no time, no lock, no log. The line is
// flushed at once, so that a host that is killed keeps its diagnostics. A full pipe behind standard
// output blocks the caller: never call this while holding a lock that MIDI needs. Any thread.
void ConsolePrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Lines that come up while a lock is held and are printed, in order, once it has been left. For one
// thread. What was not printed yet is printed at the end of its life.
class ConsoleLines {
 public:
  ConsoleLines() = default;
  ~ConsoleLines() { Print(); }
  ConsoleLines(const ConsoleLines&) = delete;
  ConsoleLines& operator=(const ConsoleLines&) = delete;

  void Add(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Print();

 private:
  std::vector<std::string> lines;
};

}  // namespace corvalint
