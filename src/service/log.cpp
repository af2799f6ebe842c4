#include "service/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "service/console.h"
#include "service/log_limits.h"

namespace corvalint {

namespace {

constexpr std::size_t kTemplateSize = 32767;
constexpr std::size_t kCopyChunk = 512;
// A log that could not be opened is tried again, but not at every line.
constexpr std::int64_t kReopenSeconds = 5;

struct Log {
  CriticalSection lock;
  std::int32_t byteCount CORVALINT_GUARDED_BY(lock) = 0;
  std::int32_t backups CORVALINT_GUARDED_BY(lock) = 0;
  std::atomic<std::int32_t> threshold{kLogInfo};
  std::string path;  // constant after construction
  std::FILE* file CORVALINT_GUARDED_BY(lock) = nullptr;
  std::int64_t openTried CORVALINT_GUARDED_BY(lock) = 0;  // counter ticks
};

std::atomic<Log*> theLog{nullptr};
// KiB; below 1 turns the size checks off.
std::atomic<std::int32_t> sizeLimit{0};

const char* LevelName(int level) {
  switch (level) {
    case kLogError:
      return "ERROR";
    case kLogWarn:
      return "WARN";
    case kLogInfo:
      return "INFO";
    case kLogDebug:
      return "DEBUG";
    default:
      return "UNKNOWN";
  }
}

bool OverLimit(std::int32_t byteCount) {
  const std::int32_t limit = sizeLimit;
  return limit >= 1 && byteCount > std::int64_t{limit} * 1024;
}

// A file over the limit counts as very large: its size may be more than a position can tell.
std::int32_t FileSize(const char* path) {
  std::FILE* file = Use<ProcessApi>().openFile(path, "r");
  if (file == nullptr) return 0;
  const std::int32_t limit = sizeLimit;
  const bool overLimit =
      limit >= 1 && std::fseek(file, long{limit} * 1024, SEEK_SET) == 0 && std::fgetc(file) != EOF;
  std::fseek(file, 0, SEEK_END);
  const long size = std::ftell(file);
  std::fclose(file);
  return overLimit || size < 0 || size > INT32_MAX ? INT32_MAX : static_cast<std::int32_t>(size);
}

void CopyFile(const std::string& source, const std::string& target) {
  std::FILE* from = Use<ProcessApi>().openFile(source.c_str(), "r");
  if (from == nullptr) return;
  std::FILE* to = Use<ProcessApi>().openFile(target.c_str(), "w");
  if (to != nullptr) {
    char chunk[kCopyChunk];
    std::size_t count;
    while ((count = std::fread(chunk, 1, sizeof chunk, from)) > 0) {
      if (std::fwrite(chunk, 1, count, to) != count) break;
    }
    std::fclose(to);
  }
  std::fclose(from);
}

void ShiftBackups(const std::string& path, std::int32_t backups) {
  for (std::int32_t k = backups; k >= 1; --k) {
    const std::string source = k == 1 ? path : path + "." + std::to_string(k - 1);
    CopyFile(source, path + "." + std::to_string(k));
  }
}

void Rotate(Log& log) CORVALINT_REQUIRES(log.lock) {
  if (log.file != nullptr) std::fclose(log.file);
  log.openTried = Use<ClockApi>().counter();
  log.byteCount = FileSize(log.path.c_str());
  if (OverLimit(log.byteCount)) {
    if (log.backups > 0) ShiftBackups(log.path, log.backups);
    log.file = Use<ProcessApi>().openFile(log.path.c_str(), "w");
    log.byteCount = 0;
  } else {
    log.file = Use<ProcessApi>().openFile(log.path.c_str(), "a+");
  }
}

// Only a write can bring a log back whose file could not be opened.
bool FileIsOpen(Log& log) CORVALINT_REQUIRES(log.lock) {
  if (log.file == nullptr) {
    const ClockApi& clock = Use<ClockApi>();
    const std::int64_t waited = clock.counter() - log.openTried;
    if (waited < 0 || waited > kReopenSeconds * clock.frequency()) Rotate(log);
  }
  return log.file != nullptr;
}

// Appends to the text in `line`, cut at its end, which stays zero.
void Append(char* line, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Append(char* line, const char* format, ...) {
  const std::size_t used = std::strlen(line);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line + used, kTemplateSize - used, format, arguments);
  va_end(arguments);
}

// A conversion that the template's end went through is no format: it goes as a whole.
void DropCutConversion(char* line) {
  if (std::strlen(line) + 1 < kTemplateSize) return;
  for (char* at = line; (at = std::strchr(at, '%')) != nullptr; ++at) {
    char* const conversion = at;
    at += 1 + std::strspn(at + 1, "-+ #0123456789.*hlLjztI");
    if (*at == '\0') {
      *conversion = '\0';
      return;
    }
  }
}

// The line's own format: the caller's format becomes a part of it and is expanded by the write.
// Callers' formats are short literals, never data.
void FillTemplate(char* line, int level, const char* format) {
  const LocalTime now = Use<ClockApi>().localTime();
  Append(line, "%04d-%02d-%02d %02d:%02d:%02d ", now.year, now.month, now.day, now.hour, now.minute,
         now.second);
  Append(line, "[%u]", Use<ThreadApi>().currentId());
  Append(line, " %s %s\n", LevelName(level), format);
  DropCutConversion(line);
}

void WriteLine(Log& log, int level, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
void WriteLine(Log& log, int level, const char* format, va_list arguments) {
  if (format == nullptr || level > log.threshold) return;
  // The log's lock keeps a rotation from closing the file under a writer.
  CriticalSectionScope hold(log.lock);
  if (!FileIsOpen(log)) return;
  const std::unique_ptr<char[]> line(new (std::nothrow) char[kTemplateSize]());
  if (line == nullptr) return;
  FillTemplate(line.get(), level, format);
  const int written = std::vfprintf(log.file, line.get(), arguments);
  std::fflush(log.file);
  if (written > 0) log.byteCount += written;
  if (OverLimit(log.byteCount)) Rotate(log);
}

// Null, and a complaint, without a log. That only the one of LogInfo ends its line is on purpose:
// what the library prints stays byte for byte as it is.
Log* LogOrComplaint(int level) {
  Log* const log = theLog.load();
  if (log == nullptr) {
    ConsolePrint(level == kLogInfo ? "BUG: log not initialized!\n" : "BUG: log not initialized!");
  }
  return log;
}

}  // namespace

void LogInit(const char* path) {
  if (theLog.load() != nullptr) return;
  auto log = std::make_unique<Log>();
  log->path = path;
  sizeLimit = 2048;
  Log* none = nullptr;
  if (!theLog.compare_exchange_strong(none, log.get())) return;
  static_cast<void>(log.release());
  LogRotate();
}

void LogSetThreshold(int level) {
  if (Log* log = theLog.load()) log->threshold = level;
}

void LogSetLimits(std::int32_t kibibytes, std::int32_t backups) {
  Log* log = theLog.load();
  if (log == nullptr) return;
  CriticalSectionScope hold(log->lock);
  sizeLimit = kibibytes;
  log->backups = backups;
}

void LogRotate() {
  Log* log = theLog.load();
  if (log == nullptr) return;
  CriticalSectionScope hold(log->lock);
  Rotate(*log);
}

void LogWrite(int level, const char* format, ...) {
  Log* log = theLog.load();
  if (log == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  WriteLine(*log, level, format, arguments);
  va_end(arguments);
}

void LogError(const char* format, ...) {
  Log* const log = LogOrComplaint(kLogError);
  if (log == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  WriteLine(*log, kLogError, format, arguments);
  va_end(arguments);
}

void LogInfo(const char* format, ...) {
  Log* const log = LogOrComplaint(kLogInfo);
  if (log == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  WriteLine(*log, kLogInfo, format, arguments);
  va_end(arguments);
}

void LogDebug(const char* format, ...) {
  Log* const log = LogOrComplaint(kLogDebug);
  if (log == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  WriteLine(*log, kLogDebug, format, arguments);
  va_end(arguments);
}

void LogResetForTest() {
  std::unique_ptr<Log> log(theLog.exchange(nullptr));
  if (log == nullptr) return;
  CriticalSectionScope hold(log->lock);
  if (log->file != nullptr) std::fclose(log->file);
  log->file = nullptr;
}

}  // namespace corvalint
