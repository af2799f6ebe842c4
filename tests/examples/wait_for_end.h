#pragma once

#include <optional>
#include <string>

#include "harness/process.h"

namespace corvalint {

// The exit code of a program, given when all that it wrote has been read as well. Empty, if it does
// not end in that time.
inline std::optional<int> WaitForEnd(harness::Process& process, std::chrono::milliseconds limit) {
  const std::optional<int> code = process.WaitForExit(limit);
  const auto never = [](const std::string&) { return false; };
  // These come back early at the end of a stream.
  process.WaitForOutput(never, limit);
  process.WaitForErrors(never, limit);
  return code;
}

}  // namespace corvalint
