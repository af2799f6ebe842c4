#pragma once

#include <cstdint>

namespace corvalint {

// For tests, which cannot wait for a file of 2 MiB; the library itself keeps the limits of LogInit.
// Replaces the limits that LogInit sets, 2048 KiB and no copies, until the next LogInit. A limit
// below 1 turns the size checks off. `backups` is how many numbered copies a truncation leaves,
// ".1" being the youngest. Any thread; nothing without a log.
void LogSetLimits(std::int32_t kibibytes, std::int32_t backups);

}  // namespace corvalint
