#include "usb/usb_server_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/clear_desktop.h"
#include "support/fake_winmm.h"
#include "support/usb_server_fixture.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {
namespace {

using namespace test;

using Lines = std::vector<std::string>;

class UsbServerThreadTest : public UsbServerFixture {};

const Lines kIdentify = {
    "CFStringMakeConstantString(DeviceName)", "AMDeviceCopyValue(pad, 0, DeviceName)",
    "AMDeviceCopyDeviceIdentifier(pad)", "CFStringGetCString(pad, 8192, 0x600)"};

Lines Times(const Lines& lines, int times) {
  Lines all;
  for (int i = 0; i < times; ++i) all.insert(all.end(), lines.begin(), lines.end());
  return all;
}

// --- the run

TEST_F(UsbServerThreadTest, TheRunSubscribesAndWaits) {
  EXPECT_EQ(server.midiLock.load(), nullptr);
  StartServer();
  EXPECT_NE(server.midiLock.load(), nullptr);
  EXPECT_EQ(library.TakeCalls(), (Lines{"AMDeviceNotificationSubscribe(0, 0, 0)",
                                        "AMRestoreRegisterForDeviceNotifications(0)"}));
  // The text has a line end of its own.
  EXPECT_EQ(log.Lines(), (Lines{"INFO Subscribed for notifications: 0", ""}));
  EXPECT_EQ(console.Take(), "");
}

TEST_F(UsbServerThreadTest, TheDesktopIsScannedOnceBeforeTheSubscription) {
  FakeWinmm winmm;
  winmm.SetOutputs({"Synth"});
  std::int64_t found = -1;
  library.WhenCalled("AMDeviceNotificationSubscribe",
                     [&] { found = GetMidiEndpointRegistry().DestinationCount(); });
  StartServer();
  EndServer();
  threads.JoinAll();
  EXPECT_EQ(found, 1);
  EXPECT_EQ(winmm.Count("midiOutGetNumDevs"), 1);
  winmm.TakeCalls();
  test::ClearDesktop();
}

TEST_F(UsbServerThreadTest, AStopEndsTheRunAfterTheCurrentSleep) {
  StartServer();
  library.TakeCalls();
  EndServer();
  threads.JoinAll();
  EXPECT_EQ(idleSleeps, 1);
  EXPECT_EQ(library.TakeCalls(), (Lines{"AMDeviceNotificationUnsubscribe(ours)"}));
}

TEST_F(UsbServerThreadTest, TheFlagIsTestedBeforeTheFirstSleep) {
  library.UnsubscribeAnswers(5);
  EXPECT_EQ(server.Run(), 5u);
  EXPECT_EQ(idleSleeps, 0);
  EXPECT_EQ(library.TakeCalls(), (Lines{"AMDeviceNotificationSubscribe(0, 0, 0)",
                                        "AMRestoreRegisterForDeviceNotifications(0)",
                                        "AMDeviceNotificationUnsubscribe(ours)"}));
}

TEST_F(UsbServerThreadTest, AFailedSubscriptionIsLoggedAndTheRunGoesOn) {
  library.SubscribeAnswers(0xE8000001);
  StartServer();
  EXPECT_EQ(log.Lines(), (Lines{"INFO Subscribed for notifications: 3892314113", "",
                                "ERROR AMDeviceNotificationSubscribe = -402653183"}));
  EXPECT_EQ(library.Count("AMRestoreRegisterForDeviceNotifications"), 1);
}

TEST_F(UsbServerThreadTest, DfuAndRecoveryAreRegisteredInTheirPlaces) {
  StartServer();
  const auto restore = library.Restore();
  EXPECT_EQ(restore.context, static_cast<void*>(&server));
  restore.dfuConnect(nullptr, restore.context);
  EXPECT_EQ(console.Take(), "Detected a DFU connection\n");
  restore.recoveryConnect(nullptr, restore.context);
  EXPECT_EQ(console.Take(), "Detected a Recovery Connection\n");
  restore.dfuDisconnect(nullptr, restore.context);
  EXPECT_EQ(console.Take(), "Detected a DFU disconnection\n");
  restore.recoveryDisconnect(nullptr, restore.context);
  EXPECT_EQ(console.Take(), "Detected a Recovery Disconnection\n");
}

// --- a device's identifier

TEST_F(UsbServerThreadTest, TheIdentifierNamesADevice) {
  EXPECT_STREQ(UsbServerThread::GetDeviceIdentifier(pad), "pad");
  EXPECT_EQ(library.TakeCalls(), kIdentify);
}

TEST_F(UsbServerThreadTest, ADeviceWithoutAnIdentifierHasAnEmptyOne) {
  UsbServerThread::GetDeviceIdentifier(pad);
  EXPECT_STREQ(UsbServerThread::GetDeviceIdentifier(library.AddDevice({}, 3)), "");
}

TEST_F(UsbServerThreadTest, AnIdentifierThatDoesNotFitIsEmpty) {
  const std::string longest(8191, 'i');
  EXPECT_EQ(UsbServerThread::GetDeviceIdentifier(library.AddDevice(longest, 3)), longest);
  EXPECT_STREQ(UsbServerThread::GetDeviceIdentifier(library.AddDevice(longest + "i", 4)), "");
}

// --- notifications

TEST_F(UsbServerThreadTest, ANotificationWithoutADeviceChangesNothing) {
  StartServer();
  library.TakeCalls();
  for (const std::uint32_t kind : {0u, 1u, 2u, 3u, 4294967295u}) {
    const Lines before = log.Lines();
    library.Notify(nullptr, kind);
    const std::string notification = "notification(" + std::to_string(kind) + ")";
    Lines expected = before;
    expected.insert(expected.end(), {"INFO " + notification, "INFO invalid product id"});
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(console.Take(), notification + "\ninvalid product id\n");
  }
  EXPECT_EQ(library.TakeCalls(), Lines{});
  EXPECT_EQ(server.clients.Count(), 0u);
}

TEST_F(UsbServerThreadTest, ADeviceThatIsNotUsableChangesNothing) {
  StartServer();
  FakeMobileDevice::SetProduct(pad, 0);
  library.Notify(pad, kConnected);
  EXPECT_EQ(console.Take(), "notification(1)\ninvalid product id\n");
  EXPECT_EQ(server.clients.Count(), 0u);
  EXPECT_EQ(server.ManagerCount(), 0u);
  // Any bit of the word will do.
  FakeMobileDevice::SetProduct(pad, std::uintptr_t{1} << 63);
  Attach(pad);
  EXPECT_EQ(server.clients.Count(), 1u);
}

TEST_F(UsbServerThreadTest, AnotherKindIsOnlyNoted) {
  StartServer();
  library.TakeCalls();
  const Lines before = log.Lines();
  library.Notify(pad, 3);
  EXPECT_EQ(console.Take(), "notification(3)\n");
  Lines expected = before;
  expected.push_back("INFO notification(3)");
  EXPECT_EQ(log.Lines(), expected);
  EXPECT_EQ(library.TakeCalls(), Lines{});
}

TEST_F(UsbServerThreadTest, AnArrivalIsLoggedBeforeItIsPrinted) {
  StartServer();
  console.Take();
  std::string seen;
  Lines states;
  library.WhenCalled("AMDeviceCopyDeviceIdentifier", [&] {
    seen += console.Take();
    const bool printed = seen.find("Device connected: pad\n") != std::string::npos;
    states.push_back(std::to_string(log.Count("INFO Device connected: pad")) +
                     (printed ? " printed" : ""));
  });
  threads.RefuseNext();
  library.TakeCalls();
  library.Notify(pad, kConnected);
  EXPECT_EQ(states, (Lines{"0", "1", "1 printed"}));
  EXPECT_EQ(seen + console.Take(), "notification(1)\nDevice connected: pad\nDevice created\n");
  EXPECT_EQ(library.TakeCalls(), Times(kIdentify, 3));
}

TEST_F(UsbServerThreadTest, ADepartureIsPrintedBeforeItIsLogged) {
  StartServer();
  console.Take();
  std::string seen;
  Lines states;
  library.WhenCalled("AMDeviceCopyDeviceIdentifier", [&] {
    seen += console.Take();
    const bool printed = seen.find("Device disconnected: pad\n") != std::string::npos;
    states.push_back(std::to_string(log.Count("INFO Device disconnected: pad")) +
                     (printed ? " printed" : ""));
  });
  library.TakeCalls();
  library.Notify(pad, kDisconnected);  // of a device that has no client
  EXPECT_EQ(states, (Lines{"0", "0 printed"}));
  EXPECT_EQ(log.Count("INFO Device disconnected: pad"), 1);
  EXPECT_EQ(seen + console.Take(), "notification(2)\nDevice disconnected: pad\n");
  EXPECT_EQ(library.TakeCalls(), Times(kIdentify, 2));
}

TEST_F(UsbServerThreadTest, NothingHappensBeforeThereIsAServer) {
  StartServer();
  theUsbServer = nullptr;
  library.Notify(pad, kConnected);
  EXPECT_EQ(console.Take(), "");
  EXPECT_EQ(server.clients.Count(), 0u);
}

// The device library's frames know no exceptions.
TEST_F(UsbServerThreadTest, AnExceptionStaysInside) {
  StartServer();
  std::atomic<int> calls{0};
  library.WhenCalled("AMDeviceCopyDeviceIdentifier", [&] {
    if (++calls == 1) throw std::runtime_error("no memory");
  });
  library.Notify(pad, kConnected);
  EXPECT_EQ(log.Count("ERROR device notification failed: no memory"), 1);
  std::thread another([this] { Attach(pad); });  // no lock was left behind
  another.join();
  EXPECT_EQ(server.clients.Count(), 1u);
}

TEST_F(UsbServerThreadTest, NotificationsAreHandledOneAtATime) {
  StartServer();
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  library.WhenCalled("AMDeviceCopyValue", [&] {
    most = std::max(most.load(), ++inside);
    std::this_thread::yield();
  });
  library.WhenCalled("AMDeviceCopyDeviceIdentifier", [&] { --inside; });
  std::thread one([this] {
    for (int i = 0; i < 200; ++i) library.Notify(pad, kDisconnected);
  });
  for (int i = 0; i < 200; ++i) library.Notify(phone, kDisconnected);
  one.join();
  EXPECT_EQ(most, 1);
}

}  // namespace
}  // namespace corvalint
