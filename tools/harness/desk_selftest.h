#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "harness/desk.h"

namespace corvalint::harness {

// A desk with the small program that uses its stand-ins as the product does.
class DeskSelftest : public testing::Test {
 protected:
  static DeskOptions Options() {
    DeskOptions options;
    options.program = "desk/corvalint-desk-selftest.exe";
    options.arguments = {};
    options.files = {};
    return options;
  }

  long long Do(const std::string& command) {
    const Json answer = desk.GetHost().Ask(command);
    if (!answer.contains("value")) ADD_FAILURE() << command << ": " << answer.dump();
    return answer.value("value", -1LL);
  }

  std::vector<std::string> Heard() {
    std::vector<std::string> texts;
    const Json answer = desk.GetHost().Ask("heard");
    for (const Json& hex : answer.at("heard")) {
      const Bytes bytes = BytesFromHex(hex.get<std::string>());
      texts.emplace_back(bytes.begin(), bytes.end());
    }
    return texts;
  }

  // Opens, fills and starts the input that stands first in the list.
  void StartInput() {
    ASSERT_EQ(Do("open-input 0"), 0);
    ASSERT_EQ(Do("queue"), 0);
    ASSERT_EQ(Do("start"), 0);
    ASSERT_THAT(Heard(), testing::ElementsAre("open"));
  }

  void InjectAndWait(int id, const std::vector<InputItem>& items, const Pacing& pacing = {}) {
    const auto result = control.WaitForJob(control.Inject(id, items, pacing));
    ASSERT_TRUE(result.has_value());
    ASSERT_EQ(result->dropped, 0u);
  }

  Desk desk{Options()};
  DeskControl& control = desk.Control();
};

}  // namespace corvalint::harness
