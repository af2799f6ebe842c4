#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <unistd.h>

namespace corvalint::fuzz {

// Ends the process with a line that says what was wrong. The fuzzer then keeps the input, and a
// replay fails.
[[noreturn]] inline void Fail(std::string_view what) {
  const std::string line = "\ncheck failed: " + std::string(what) + "\n";
  static_cast<void>(!write(STDERR_FILENO, line.data(), line.size()));
  std::abort();
}

inline void Check(bool holds, const char* what) {
  if (!holds) Fail(what);
}

// Both texts stand in the line when they differ.
inline void CheckSame(std::string_view found, std::string_view expected, const char* what) {
  if (found == expected) return;
  Fail(std::string(what) + "\n  found:    " + std::string(found) +
       "\n  expected: " + std::string(expected));
}

}  // namespace corvalint::fuzz
