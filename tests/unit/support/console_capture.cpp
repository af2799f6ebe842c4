#include "support/console_capture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace corvalint::test {

ConsoleCapture::ConsoleCapture() {
  std::fflush(stdout);
  std::string name = ::testing::TempDir() + "corvalint_console_XXXXXX";
  file = mkstemp(name.data());
  EXPECT_GE(file, 0) << "no temporary file for standard output";
  unlink(name.c_str());
  original = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  EXPECT_EQ(dup2(file, STDOUT_FILENO), STDOUT_FILENO);
}

ConsoleCapture::~ConsoleCapture() {
  std::fflush(stdout);
  EXPECT_EQ(dup2(original, STDOUT_FILENO), STDOUT_FILENO);
  close(original);
  if (::testing::Test::HasFailure()) {
    std::printf("--- standard output of the test:\n%s\n---\n", Text().c_str());
  }
  close(file);
}

std::string ConsoleCapture::Text() const {
  std::string text;
  char part[4096];
  ssize_t count;
  while ((count = pread(file, part, sizeof part, static_cast<off_t>(text.size()))) > 0) {
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

std::string ConsoleCapture::Take() {
  const std::string text = Text();
  const std::string fresh = text.substr(taken);
  taken = text.size();
  return fresh;
}

}  // namespace corvalint::test
