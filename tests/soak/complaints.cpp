#include "soak/complaints.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace corvalint::soak {

namespace {

constexpr std::size_t kKept = 50;

std::mutex mutex;
std::vector<std::string> kept;
std::uint64_t count = 0;

}  // namespace

void Complain(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const std::lock_guard hold(mutex);
  ++count;
  if (kept.size() < kKept) kept.emplace_back(text);
}

std::uint64_t ComplaintCount() {
  const std::lock_guard hold(mutex);
  return count;
}

std::vector<std::string> Complaints() {
  const std::lock_guard hold(mutex);
  return kept;
}

bool Expect(bool holds, const std::string& what) {
  if (!holds) Complain("%s", what.c_str());
  return holds;
}

}  // namespace corvalint::soak
