// Which functions of the device library the shipped DLL calls, in which order and with what.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

using harness::CallEntry;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr std::uint64_t kAscii = 0x0600;
// Port 23451 in network byte order.
constexpr std::uint64_t kPortInOrder = 0x9B5B;

const std::vector<std::string> kDeviceCalls{"__CFStringMakeConstantString",
                                            "CFStringGetCString",
                                            "CFRelease",
                                            "AMDeviceCopyValue",
                                            "AMDeviceCopyDeviceIdentifier",
                                            "AMDeviceConnect",
                                            "AMDeviceGetConnectionID",
                                            "AMDeviceDisconnect",
                                            "USBMuxConnectByPort"};
const std::vector<std::string> kIdentify{"__CFStringMakeConstantString", "AMDeviceCopyValue",
                                         "AMDeviceCopyDeviceIdentifier", "CFStringGetCString"};

std::vector<std::string> Identified(int times, const std::vector<std::string>& then) {
  std::vector<std::string> all;
  for (int i = 0; i < times; ++i) all.insert(all.end(), kIdentify.begin(), kIdentify.end());
  all.insert(all.end(), then.begin(), then.end());
  return all;
}

TEST(DeviceCalls, TheDesktopIsLookedAtBeforeTheSubscription) {
  Bridge bridge({"Keys"}, {"Synth"});
  ASSERT_TRUE(bridge.Control().WaitForCall("AMRestoreRegisterForDeviceNotifications"));
  const auto calls = CallsTo(
      bridge.Control(), {"midiOutGetNumDevs", "midiInGetNumDevs", "AMDeviceNotificationSubscribe",
                         "AMRestoreRegisterForDeviceNotifications"});
  ASSERT_GE(calls.size(), 4u);
  EXPECT_THAT(NamesOf({calls.begin(), calls.begin() + 4}),
              ElementsAre("midiOutGetNumDevs", "midiInGetNumDevs", "AMDeviceNotificationSubscribe",
                          "AMRestoreRegisterForDeviceNotifications"));
  EXPECT_THAT(calls[2].arguments, ElementsAre(0u, 0u, 0u));
  ASSERT_EQ(calls[3].arguments.size(), 2u);
  EXPECT_EQ(calls[3].arguments[0], 0u);
  EXPECT_NE(calls[3].arguments[1], 0u);  // the server
}

TEST(DeviceCalls, ADeviceIsConnectedOnceAndItsPortForEveryStream) {
  Bridge bridge;
  harness::DeskControl& control = bridge.Control();
  control.ClearCalls();
  const auto a = bridge.Plug("device-a");
  ASSERT_TRUE(a->Flush());
  auto calls = CallsTo(control, kDeviceCalls);
  const std::vector<std::string> connecting{"AMDeviceConnect", "AMDeviceGetConnectionID",
                                            "USBMuxConnectByPort"};
  ASSERT_THAT(NamesOf(calls), ElementsAreArray(Identified(3, connecting)));
  EXPECT_EQ(calls[0].text, "DeviceName");
  EXPECT_EQ(calls[1].text, "device-a DeviceName");
  EXPECT_EQ(calls[1].arguments.at(1), 0u);  // no domain
  EXPECT_THAT(calls[3].arguments, ElementsAre(8192u, kAscii));
  const auto connection = static_cast<std::uint64_t>(calls[13].result.value_or(0));
  EXPECT_NE(connection, 0u);
  EXPECT_THAT(calls[14].arguments, ElementsAre(connection, kPortInOrder));

  control.ClearCalls();
  a->App().Cut(device::CutHow::kFinish);
  ASSERT_TRUE(a->App().WaitForStream(2, kPatience));
  ASSERT_TRUE(a->Flush());
  calls = CallsTo(control, kDeviceCalls);
  ASSERT_THAT(NamesOf(calls), ElementsAre("USBMuxConnectByPort"));
  EXPECT_THAT(calls[0].arguments, ElementsAre(connection, kPortInOrder));

  control.ClearCalls();
  a->Detach();
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("~BaseClientThread"));
  EXPECT_THAT(NamesOf(CallsTo(control, kDeviceCalls)),
              ElementsAreArray(Identified(2, {"AMDeviceDisconnect", "AMDeviceDisconnect"})));
  EXPECT_THAT(control.Violations(), IsEmpty());
}

// The calls from the connection on; a device that is not connected is tried again only later.
void ExpectConnecting(std::uint32_t answer, const std::vector<std::string>& expected) {
  Bridge bridge;
  harness::DeskControl& control = bridge.Control();
  control.SetDevice("odd", {.identifier = "odd",
                            .connectionId = 0xAB,
                            .connectAnswers = {answer},
                            .streamAnswers = {0x1234}});
  control.Attach("odd");
  ASSERT_TRUE(control.WaitForCall(expected.back()));
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("DEBUG Device handle="));
  const auto calls =
      CallsTo(control, {"AMDeviceConnect", "AMDeviceGetConnectionID", "USBMuxConnectByPort"});
  ASSERT_GE(calls.size(), expected.size());
  EXPECT_THAT(
      NamesOf({calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(expected.size())}),
      ElementsAreArray(expected));
  if (calls.size() > expected.size()) {
    EXPECT_EQ(calls[expected.size()].function, "AMDeviceConnect");
  }
  if (expected.back() == "USBMuxConnectByPort") {
    EXPECT_THAT(calls[2].arguments, ElementsAre(0xABu, kPortInOrder));
  }
}

TEST(DeviceCalls, EveryAnswerToAConnectionHasItsOwnConsequence) {
  ExpectConnecting(0xE8000065,
                   {"AMDeviceConnect", "AMDeviceGetConnectionID", "USBMuxConnectByPort"});
  ExpectConnecting(0xE8000028, {"AMDeviceConnect", "AMDeviceGetConnectionID"});
  ExpectConnecting(0xE800000B, {"AMDeviceConnect"});
}

}  // namespace
}  // namespace corvalint::windows_test
