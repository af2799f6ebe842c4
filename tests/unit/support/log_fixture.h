#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/thread.h"
#include "service/log.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_process.h"

namespace corvalint::test {

inline constexpr std::size_t kLimit = 2048 * 1024;
inline constexpr std::size_t kTemplateSize = 32767;
inline constexpr std::int64_t kSecond = 10'000'000;
// Date, time and thread of every line here.
inline const std::string kHead = "2026-11-16 01:48:06 [4312] ";

// The log in the file "log" of a folder of its own. No log exists when a test begins.
class LogTest : public testing::Test {
 protected:
  LogTest() {
    static constexpr ThreadApi kApi{
        .create = nullptr, .terminate = nullptr, .close = nullptr, .currentId = [] {
          return writerId;
        }};
    writerId = 4312;
    Install<ThreadApi>(&kApi);
    LogResetForTest();
  }
  ~LogTest() override {
    LogResetForTest();
    Install<ThreadApi>(nullptr);
  }

  std::string Text() const { return process.Folder().Read("log"); }
  void Fill(std::size_t size) const { process.Folder().Write("log", std::string(size, 'x')); }
  // Writes one line of that many bytes, line feed included.
  static void WriteBytes(std::size_t size) {
    const std::size_t rest = size - (kHead + "INFO \n").size();
    LogInfo("%s", std::string(rest, 'y').c_str());
  }

  static inline std::uint32_t writerId = 0;
  ConsoleCapture console;
  CallLog calls;
  FakeClock clock;
  FakeProcess process{calls};
};

}  // namespace corvalint::test
