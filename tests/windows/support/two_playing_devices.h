#pragma once

#include <string>
#include <vector>

#include "windows/support/two_devices.h"

namespace corvalint::windows_test {

// What was recorded, without the times.
inline std::vector<device::Bytes> BytesOf(const std::vector<harness::Recorded>& recorded) {
  std::vector<device::Bytes> list;
  list.reserve(recorded.size());
  for (const auto& message : recorded) list.push_back(message.bytes);
  return list;
}

// Two devices that stay, at a desk whose input and first output are switched on. Each test finds
// nothing recorded.
class TwoPlayingDevices : public TwoDevices {
 protected:
  static void SetUpTestSuite() { Begin("Keys", {"Synth"}); }

  static void Begin(const std::string& input, const std::vector<std::string>& outputs) {
    TwoDevices::Begin(input, outputs);
    keys = bridge->SwitchSourceOn(input);
    synth = bridge->SwitchDestinationOn(outputs.front());
  }

  void SetUp() override {
    Settle();
    TwoDevices::SetUp();
    bridge->Control().ForgetRecorded();
    bridge->Control().ClearCalls();
  }
  void TearDown() override { ExpectNoViolations(); }

  // All that the devices sent has been handled, and all that this sent to either has arrived.
  static void Settle() {
    for (int round = 0; round < 2; ++round) ASSERT_TRUE(a->Flush() && b->Flush());
  }
};

}  // namespace corvalint::windows_test
