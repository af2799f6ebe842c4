#include "usb/usb_server_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_mobile_device.h"
#include "support/fake_virtual_midi.h"
#include "support/fake_winmm.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/scripted_sockets.h"
#include "support/tracked_threads.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {
namespace {

using namespace test;

using Lines = std::vector<std::string>;

constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kDisconnected = 2;

// Servers live until the process ends; this keeps them reachable.
UsbServerThread& NewServer() {
  static auto* const servers = new std::vector<UsbServerThread*>;
  servers->push_back(new UsbServerThread);
  return *servers->back();
}

// A server with its thread, which sleeps until the test ends. The other threads' sleeps take no
// time.
class UsbServerThreadTest : public testing::Test {
 protected:
  UsbServerThreadTest() {
    theUsbServer = &server;
    clock.WhenSleeping([this](std::uint32_t milliseconds) {
      if (milliseconds != 10000) return;
      std::unique_lock hold(mutex);
      ++idleSleeps;
      changed.notify_all();
      changed.wait(hold, [this] { return wakes; });
    });
  }
  ~UsbServerThreadTest() override {
    theUsbServer = &server;
    library.ForgetActions();
    for (const DeviceHandle device : ListedDevices()) library.Notify(device, kDisconnected);
    EXPECT_EQ(server.clients.Count(), 0u);
    EndServer();
    threads.JoinAll();
    theUsbServer = nullptr;
    driver.TakeCalls();
    EXPECT_EQ(threads.OpenHandles(), server.HasThread() ? 1u : 0u) << "but for the server's own";
    EXPECT_EQ(threads.Terminated(), 0);
  }

  void StartServer() {
    server.Start();
    std::unique_lock hold(mutex);
    changed.wait(hold, [this] { return idleSleeps > 0; });
  }
  void EndServer() {
    server.Stop();
    const std::lock_guard hold(mutex);
    wakes = true;
    changed.notify_all();
  }

  std::vector<DeviceHandle> ListedDevices() {
    std::vector<DeviceHandle> devices;
    for (DeviceClient* listed : ClientWalk(server.clients)) {
      devices.push_back(static_cast<UsbClientThread*>(listed)->Device());
    }
    return devices;
  }
  // The client of that device, while it is listed.
  UsbClientThread* ClientOf(DeviceHandle device) {
    for (DeviceClient* listed : ClientWalk(server.clients)) {
      auto* const client = static_cast<UsbClientThread*>(listed);
      if (client->Device() == device) return client;
    }
    return nullptr;
  }
  // Returns once the client has read everything that was sent to it.
  static void Settle(StreamPeer& peer) {
    peer.SendFrame(OscMessage("/init_timing", "h", OscInt64(0)));
    while (peer.ReceiveFrame().rfind("/init_timing", 0) != 0) {
    }
  }
  std::unique_ptr<StreamPeer> Attach(DeviceHandle device) {
    library.Notify(device, kConnected);
    return library.NextStream(device);
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  ScriptedSockets sockets;
  FakeVirtualMidi driver;
  FakeMobileDevice library;
  TrackedThreads threads;
  UsbServerThread& server = NewServer();
  DeviceHandle pad = library.AddDevice("pad", 1);
  DeviceHandle phone = library.AddDevice("phone", 2);
  std::mutex mutex;
  std::condition_variable changed;
  int idleSleeps = 0;
  bool wakes = false;
};

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
  MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
  CriticalSectionScope hold(registry.listLock);
  registry.destinations.clear();
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

// --- devices come and go

TEST_F(UsbServerThreadTest, ADeviceThatReturnsKeepsItsManager) {
  StartServer();
  const auto first = Attach(pad);
  EXPECT_EQ(server.clients.Count(), 1u);
  ExternalMidiManager* const manager = &ClientOf(pad)->Manager();
  EXPECT_FALSE(manager->deviceDisconnected);

  library.Notify(pad, kDisconnected);
  EXPECT_EQ(server.clients.Count(), 0u);
  EXPECT_TRUE(manager->deviceDisconnected);
  EXPECT_TRUE(first->Ended());

  const auto second = Attach(pad);
  EXPECT_EQ(server.clients.Count(), 1u);
  EXPECT_EQ(&ClientOf(pad)->Manager(), manager);
  EXPECT_FALSE(manager->deviceDisconnected);
  EXPECT_EQ(server.ManagerCount(), 1u);
  EXPECT_EQ(log.Count("DEBUG UsbClientThread()"), 2);
}

TEST_F(UsbServerThreadTest, TheClientRunsFromTheArrivalOn) {
  StartServer();
  const auto peer = Attach(pad);
  EXPECT_TRUE(ClientOf(pad)->Running());
  EXPECT_TRUE(ClientOf(pad)->HasThread());
  Settle(*peer);
}

TEST_F(UsbServerThreadTest, TwoDevicesAreKeptApart) {
  StartServer();
  const auto padPeer = Attach(pad);
  const auto phonePeer = Attach(phone);
  EXPECT_EQ(server.clients.Count(), 2u);
  EXPECT_EQ(server.ManagerCount(), 2u);
  EXPECT_NE(&ClientOf(pad)->Manager(), &ClientOf(phone)->Manager());
  EXPECT_EQ(ListedDevices(), (std::vector<DeviceHandle>{pad, phone}));
  library.Notify(pad, kDisconnected);
  EXPECT_EQ(server.clients.Count(), 1u);
  EXPECT_EQ(ClientOf(pad), nullptr);
  ASSERT_NE(ClientOf(phone), nullptr);
  Settle(*phonePeer);
}

TEST_F(UsbServerThreadTest, DevicesWithoutAnIdentifierShareAManager) {
  StartServer();
  const DeviceHandle one = library.AddDevice({}, 11);
  const DeviceHandle two = library.AddDevice({}, 12);
  const auto onePeer = Attach(one);
  const auto twoPeer = Attach(two);
  EXPECT_EQ(server.ManagerCount(), 1u);
  EXPECT_EQ(&ClientOf(one)->Manager(), &ClientOf(two)->Manager());
  EXPECT_EQ(log.Count("INFO Device connected: "), 2);
  library.Notify(one, kDisconnected);
}

TEST_F(UsbServerThreadTest, ADepartureOfAnUnknownDeviceDoesNothing) {
  StartServer();
  const auto peer = Attach(pad);
  library.Notify(phone, kDisconnected);
  EXPECT_EQ(server.clients.Count(), 1u);
  EXPECT_EQ(server.ManagerCount(), 1u);
  Settle(*peer);
}

TEST_F(UsbServerThreadTest, AnArrivalWaitsForNoHolderOfTheBridgesLocks) {
  StartServer();
  CriticalSectionScope holdClients(server.clientLock);
  CriticalSectionScope holdPorts(*server.midiLock.load());
  std::thread arrival([this] {
    threads.RefuseNext();
    library.Notify(pad, kConnected);
  });
  arrival.join();
  EXPECT_EQ(server.clients.Count(), 1u);
}

TEST_F(UsbServerThreadTest, ADepartureHoldsNoLockWhileItWaits) {
  StartServer();
  const auto peer = Attach(pad);
  Settle(*peer);
  std::atomic<int> seconds{0};
  clock.WhenSleeping([this, &seconds](std::uint32_t milliseconds) {
    if (milliseconds == 1000) {
      ++seconds;
      EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
      EXPECT_EQ(server.midiLock.load()->HoldsOfThisThread(), 0u);
      EXPECT_EQ(server.clients.Count(), 1u);  // listed until the stop is over
    }
  });
  library.Notify(pad, kDisconnected);
  EXPECT_EQ(seconds, 1);
  EXPECT_EQ(server.clients.Count(), 0u);
  EndServer();
  threads.JoinAll();
}

// The device library may hold a client inside a call until its own callback has returned.
TEST_F(UsbServerThreadTest, ADepartureDoesNotWaitForTheClientsThread) {
  StartServer();
  std::mutex gate;
  std::unique_lock departing(gate);
  library.WhenCalled("AMDeviceConnect", [&] { const std::lock_guard until(gate); });
  library.Notify(pad, kConnected);
  library.WaitForCalls("AMDeviceConnect", 1);
  library.Notify(pad, kDisconnected);
  EXPECT_EQ(server.clients.Count(), 0u);
  departing.unlock();
  EndServer();
  threads.JoinAll();
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 1);
}

// The client has nobody else to end it then.
TEST_F(UsbServerThreadTest, AClientWithoutAThreadEndsWithTheDeparture) {
  StartServer();
  threads.RefuseNext();
  library.Notify(pad, kConnected);
  EXPECT_EQ(server.clients.Count(), 1u);
  EXPECT_TRUE(ClientOf(pad)->Running());
  EXPECT_FALSE(ClientOf(pad)->HasThread());
  library.Notify(pad, kDisconnected);
  EXPECT_EQ(server.clients.Count(), 0u);
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 1);
}

TEST_F(UsbServerThreadTest, AHundredArrivalsAndDeparturesLeaveNothingBehind) {
  StartServer();
  const std::uint8_t note[] = {0x90, 0x3C, 0x7F};
  std::atomic<bool> ends{false};
  std::thread player([&] {
    while (!ends) {
      server.SendMidiToAll(note, 3, "Piano", 1, 5);
      server.SendAddRemoteSource("Keys", 2, "");
    }
  });
  for (int i = 0; i < 100; ++i) {
    const auto peer = Attach(pad);
    peer->SendFrame(MidiMessage("Piano", 1, 5, "\x90\x3C\x7F"));
    peer->Receive(12);
    library.Notify(pad, kDisconnected);
    EXPECT_TRUE(server.clients.Count() == 0);
  }
  ends = true;
  player.join();
  EndServer();
  threads.JoinAll();
  EXPECT_EQ(threads.Made(), 101);
  EXPECT_EQ(threads.OpenHandles(), 1u);  // the server's
  EXPECT_EQ(log.Count("DEBUG ~UsbClientThread"), 100);
  EXPECT_EQ(sockets.NonBlocking().size(), 100u);
  // Each exactly once; the clients end in any order.
  EXPECT_THAT(sockets.Closed(), testing::UnorderedElementsAreArray(sockets.NonBlocking()));
  EXPECT_EQ(server.ManagerCount(), 1u);
}

// --- who owns a name

TEST_F(UsbServerThreadTest, NobodyOwnsANameWithoutDevices) {
  EXPECT_FALSE(server.AnyManagerOwns("Piano"));  // no lock yet either
  StartServer();
  EXPECT_FALSE(server.AnyManagerOwns("Piano"));
}

TEST_F(UsbServerThreadTest, PublishedNamesAreOwnedAlsoWhileTheDeviceIsAway) {
  StartServer();
  const auto padPeer = Attach(pad);
  const auto phonePeer = Attach(phone);
  phonePeer->SendFrame(EndpointMessage("/add_remote_source", "Piano", 1));
  Settle(*phonePeer);
  EXPECT_TRUE(server.AnyManagerOwns("Piano"));
  EXPECT_FALSE(server.AnyManagerOwns("piano"));
  EXPECT_FALSE(server.AnyManagerOwns("Pian"));
  EXPECT_FALSE(server.AnyManagerOwns(""));
  library.Notify(phone, kDisconnected);
  EXPECT_TRUE(server.AnyManagerOwns("Piano"));
  library.Notify(pad, kDisconnected);
}

TEST_F(UsbServerThreadTest, AskingKeepsTheCallersHolds) {
  StartServer();
  const auto peer = Attach(pad);
  peer->SendFrame(EndpointMessage("/add_remote_source", "Piano", 1));
  Settle(*peer);
  CriticalSection& lock = *server.midiLock.load();
  for (const char* name : {"Piano", "Strings"}) {
    server.AnyManagerOwns(name);
    EXPECT_EQ(lock.HoldsOfThisThread(), 0u) << name;
    CriticalSectionScope hold(lock);
    server.AnyManagerOwns(name);
    EXPECT_EQ(lock.HoldsOfThisThread(), 1u) << name;
  }
  EXPECT_EQ(lock.StrayLeaves(), 0u);
}

// The desktop shows long names cut.
TEST_F(UsbServerThreadTest, ANameIsOwnedAsTheDesktopShowsIt) {
  StartServer();
  const auto peer = Attach(pad);
  const std::string name = "A name of more than thirty-one bytes";
  peer->SendFrame(EndpointMessage("/add_remote_source", name, 1));
  Settle(*peer);
  EXPECT_TRUE(server.AnyManagerOwns(name));
  EXPECT_TRUE(server.AnyManagerOwns(name.substr(0, 29) + ".."));
  EXPECT_FALSE(server.AnyManagerOwns(name.substr(0, 29)));
}

// --- the whole way

TEST_F(UsbServerThreadTest, EndpointsThatADevicePublishedAreThereOnItsReturn) {
  StartServer();
  const auto first = Attach(pad);
  first->SendFrame(EndpointMessage("/add_remote_source", "Piano", 1));
  Settle(*first);
  EXPECT_EQ(driver.TakeCalls(), (Lines{"create(Piano) = 1"}));
  library.Notify(pad, kDisconnected);
  EXPECT_EQ(driver.TakeCalls(), Lines{});
  const auto second = Attach(pad);
  second->SendFrame(EndpointMessage("/add_remote_source", "Piano", 1));
  second->SendFrame(MidiMessage("Piano", 1, 5, "\x90\x3C\x7F"));
  Settle(*second);
  EXPECT_EQ(driver.TakeCalls(), (Lines{"send(1, 90 3C 7F)"}));
}

TEST_F(UsbServerThreadTest, ADeviceIsToldWhatTheOthersHavePublished) {
  StartServer();
  const auto padPeer = Attach(pad);
  padPeer->SendFrame(EndpointMessage("/add_remote_source", "Piano", 1));
  Settle(*padPeer);
  const auto phonePeer = Attach(phone);
  EXPECT_EQ(phonePeer->ReceiveFrame(), EndpointMessage("/add_remote_source", "Piano", 1));
  Settle(*phonePeer);
  library.Notify(pad, kDisconnected);
}

}  // namespace
}  // namespace corvalint
