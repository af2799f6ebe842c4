#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "service/log.h"

namespace corvalint::test {

LogCapture::LogCapture() {
  std::string name = testing::TempDir() + "corvalint_log_XXXXXX";
  const int file = mkstemp(name.data());
  EXPECT_GE(file, 0) << "no temporary file for the log";
  close(file);
  path = name;
  LogResetForTest();
  LogInit(path.c_str());
  LogSetThreshold(kLogDebug);
}

LogCapture::~LogCapture() {
  LogResetForTest();
  unlink(path.c_str());
}

std::vector<std::string> LogCapture::Lines() const {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const auto thread = line.find("] ");
    lines.push_back(thread == std::string::npos ? line : line.substr(thread + 2));
  }
  return lines;
}

int LogCapture::Count(const std::string& line) const {
  const auto lines = Lines();
  return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

}  // namespace corvalint::test
