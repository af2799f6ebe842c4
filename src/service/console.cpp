#include "service/console.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace corvalint {

void ConsolePrint(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::fflush(stdout);
}

void ConsoleLines::Add(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string line(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(line.data(), line.size() + 1, format, again);
  va_end(again);
  lines.push_back(std::move(line));
}

void ConsoleLines::Print() {
  for (const std::string& line : lines) ConsolePrint("%s", line.c_str());
  lines.clear();
}

}  // namespace corvalint
