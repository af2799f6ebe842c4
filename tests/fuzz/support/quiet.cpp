#include "fuzz/support/quiet.h"

#include <cstdio>

#include "fuzz/support/check.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "service/log.h"

namespace corvalint::fuzz {

std::int64_t clockTicks = 0;
std::uint64_t sleptMilliseconds = 0;
void (*whenSleeping)(std::uint32_t milliseconds) = nullptr;

namespace {

constexpr std::uint64_t kDay = 24u * 60 * 60 * 1000;

ssize_t Append(void* text, const char* bytes, std::size_t count) {
  static_cast<std::string*>(text)->append(bytes, count);
  return static_cast<ssize_t>(count);
}

std::FILE* StreamInto(std::string& text) {
  std::FILE* const stream = fopencookie(
      &text, "w", {.read = nullptr, .write = Append, .seek = nullptr, .close = nullptr});
  Check(stream != nullptr, "no stream in memory");
  return stream;
}

void Sleep(std::uint32_t milliseconds) {
  clockTicks += std::int64_t{milliseconds} * 10000;
  sleptMilliseconds += milliseconds;
  Check(sleptMilliseconds < kDay, "the library sleeps for ever");
  if (whenSleeping != nullptr) whenSleeping(milliseconds);
}

const ClockApi kClock{.counter = [] { return clockTicks += 10; },
                      .frequency = [] { return std::int64_t{10000000}; },
                      .sleep = Sleep,
                      .localTime = [] { return LocalTime{2026, 1, 2, 3, 4, 5}; }};

const ProcessApi kProcess{
    .executablePath = [] { return std::string("C:\\host\\host.exe"); },
    .openFile = [](const char*, const char*) -> std::FILE* { return nullptr; },
    .pinModule = [] {},
    .sharpenTimers = [] {},
    .ansiFromLatin1 = [](const std::string& latin1) { return latin1; }};

Console* MakeQuiet() {
  auto* const console = new Console;  // the streams write into it until the process ends
  stdout = StreamInto(console->out);
  stderr = StreamInto(console->error);
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  Install<ClockApi>(&kClock);
  Install<ProcessApi>(&kProcess);
  LogInit("C:\\host\\pellora.log");
  LogSetThreshold(0);
  return console;
}

}  // namespace

Console& Quieten() {
  static Console* const console = MakeQuiet();
  return *console;
}

}  // namespace corvalint::fuzz
