#pragma once

#include <string>

namespace corvalint::test {

// Takes the standard output of the process for as long as it lives; one at a time. What was taken
// is shown after all when the test has failed by then.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  // What has left the process so far. Nothing is flushed for it: text that a printer kept in its
  // buffer is missing.
  std::string Text() const;
  // The same since the last Take.
  std::string Take();

 private:
  int original;
  int file;
  std::size_t taken = 0;
};

}  // namespace corvalint::test
