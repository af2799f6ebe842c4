#pragma once

#include <string>
#include <vector>

namespace corvalint::test {

// The process's log, down to DEBUG, in a file of its own for as long as this lives. Every thread
// that logs must have ended when its life ends.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The lines so far without time and thread: "INFO hello". An empty line is "".
  std::vector<std::string> Lines() const;
  int Count(const std::string& line) const;

 private:
  std::string path;
};

}  // namespace corvalint::test
