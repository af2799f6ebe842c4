#pragma once

namespace corvalint {

// The process-wide text log: one line an event, with local time, thread id and level.
//   2026-11-16 01:48:06 [4312] INFO hello
// Lines end in a single line feed on every system. All functions: any thread, after or before
// LogInit.

inline constexpr int kLogError = 1;
inline constexpr int kLogWarn = 2;
inline constexpr int kLogInfo = 3;
inline constexpr int kLogDebug = 4;

// Creates the log and opens its file, threshold INFO, size limit 2048 KiB. Does nothing when the
// log exists already. `path` is UTF-8 with backslashes.
void LogInit(const char* path);

// Highest level that is written from now on. Nothing without a log.
void LogSetThreshold(int level);

// Writes one line. Nothing is written without a log, above the threshold, for a null format or
// while the file cannot be opened. A file that grows over the size limit is truncated.
void LogWrite(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// LogWrite with the level in the name. Without a log they print a complaint to standard output
// instead; only LogInfo's ends in a line feed, and that difference is kept on purpose.
void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Reopens the file, truncated when it is over the size limit, appending otherwise.
void LogRotate();

// Forgets the log and closes its file, so that a test can start afresh.
void LogResetForTest();

}  // namespace corvalint
