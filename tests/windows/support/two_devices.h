#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {

// A desk with two devices that stay. Each test uses endpoints of its own and withdraws them.
class TwoDevices : public testing::Test {
 protected:
  static void SetUpTestSuite() { Begin(kKeys, {"Synth"}); }
  static void TearDownTestSuite() {
    ExpectNoViolations();
    a.reset();
    b.reset();
    bridge.reset();
  }

  static void Begin(const std::string& input, const std::vector<std::string>& outputs) {
    bridge = std::make_unique<Bridge>(std::vector<std::string>{input}, outputs);
    a = bridge->Plug("device-a");
    b = bridge->Plug("device-b");
    keys = bridge->GetHost().Sources().at(0).id;
    synth = bridge->GetHost().Destinations().at(0).id;
  }
  static void ExpectNoViolations() {
    EXPECT_THAT(a->App().Record().Violations(), testing::IsEmpty());
    EXPECT_THAT(b->App().Record().Violations(), testing::IsEmpty());
    EXPECT_THAT(bridge->Control().Violations(), testing::IsEmpty());
  }

  void SetUp() override {
    ASSERT_TRUE(a->Flush() && b->Flush());
    a->App().Record().Clear();
    b->App().Record().Clear();
    console.Restart();
  }

  // Aligns A's clock with that device time and gives the offset that A is answered.
  std::int64_t InitTiming(std::int64_t deviceTime) {
    a->App().Record().Clear();
    EXPECT_TRUE(a->App().SendPacket(device::EncodeTiming("/init_timing", deviceTime)));
    EXPECT_TRUE(WaitForMessagesTo(a->App(), "/init_timing", 1));
    const auto replies = a->App().Record().MessagesTo("/init_timing");
    return replies.at(0).message.Argument<std::int64_t>(0);
  }

  static constexpr const char* kKeys = "Kl\xE4vier";
  inline static std::unique_ptr<Bridge> bridge;
  inline static std::unique_ptr<PluggedDevice> a;
  inline static std::unique_ptr<PluggedDevice> b;
  inline static std::int32_t keys = 0;
  inline static std::int32_t synth = 0;
  ConsoleView console{bridge->GetDesk()};
};

}  // namespace corvalint::windows_test
