// How the server takes devices in, lets them go and keeps what is theirs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/usb_server_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Lines = std::vector<std::string>;

class UsbServerDevicesTest : public UsbServerFixture {};

// --- devices come and go

TEST_F(UsbServerDevicesTest, ADeviceThatReturnsKeepsItsManager) {
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

TEST_F(UsbServerDevicesTest, TheClientRunsFromTheArrivalOn) {
  StartServer();
  const auto peer = Attach(pad);
  EXPECT_TRUE(ClientOf(pad)->Running());
  EXPECT_TRUE(ClientOf(pad)->HasThread());
  Settle(*peer);
}

// A run that ends at once must find its client listed.
TEST_F(UsbServerDevicesTest, AClientIsListedBeforeItRuns) {
  StartServer();
  console.Take();
  std::uint64_t listed = 0;
  std::string printed;
  threads.WhenMaking([&] {
    listed = server.clients.Count();
    printed = console.Take();
  });
  const auto peer = Attach(pad);
  EXPECT_EQ(listed, 1u);
  EXPECT_EQ(printed, "notification(1)\nDevice connected: pad\nDevice created\n");
}

TEST_F(UsbServerDevicesTest, TwoDevicesAreKeptApart) {
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

TEST_F(UsbServerDevicesTest, DevicesWithoutAnIdentifierShareAManager) {
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

TEST_F(UsbServerDevicesTest, ADepartureOfAnUnknownDeviceDoesNothing) {
  StartServer();
  const auto peer = Attach(pad);
  library.Notify(phone, kDisconnected);
  EXPECT_EQ(server.clients.Count(), 1u);
  EXPECT_EQ(server.ManagerCount(), 1u);
  Settle(*peer);
}

TEST_F(UsbServerDevicesTest, AnArrivalWaitsForNoHolderOfTheBridgesLocks) {
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

TEST_F(UsbServerDevicesTest, ADepartureHoldsNoLockWhileItWaits) {
  StartServer();
  const auto peer = Attach(pad);
  Settle(*peer);
  std::atomic<int> seconds{0};
  ExternalMidiManager& manager = ClientOf(pad)->Manager();
  clock.WhenSleeping([this, &seconds, &manager](std::uint32_t milliseconds) {
    if (milliseconds == 1000) {
      ++seconds;
      EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
      EXPECT_EQ(server.midiLock.load()->HoldsOfThisThread(), 0u);
      EXPECT_EQ(server.clients.Count(), 1u);  // listed until the stop is over
      EXPECT_TRUE(manager.deviceDisconnected);
    }
  });
  library.Notify(pad, kDisconnected);
  EXPECT_EQ(seconds, 1);
  EXPECT_EQ(server.clients.Count(), 0u);
  EndServer();
  threads.JoinAll();
}

// A walk over the clients, which holds `clientLock`, meets a device whole or not at all.
TEST_F(UsbServerDevicesTest, ADepartureMarksAndUnlistsTheDeviceBetweenWalks) {
  StartServer();
  const auto peer = Attach(pad);
  Settle(*peer);
  ExternalMidiManager& manager = ClientOf(pad)->Manager();
  std::promise<void> stopped, walking;
  clock.WhenSleeping([&](std::uint32_t milliseconds) {
    if (milliseconds != 1000) return;
    stopped.set_value();
    walking.get_future().wait();
  });
  const auto watch = [&](const auto& expectUntouched) {
    for (int look = 0; look < 1000; ++look, std::this_thread::yield()) expectUntouched();
  };

  server.clientLock.Enter();
  std::thread departure([&] { library.Notify(pad, kDisconnected); });
  while (log.Count("INFO Device disconnected: pad") == 0) std::this_thread::yield();
  watch([&] { ASSERT_FALSE(manager.deviceDisconnected); });
  EXPECT_EQ(log.Count("DEBUG UsbClientThreadMidi::Stop()"), 0);
  server.clientLock.Leave();

  stopped.get_future().wait();
  server.clientLock.Enter();
  walking.set_value();
  watch([&] { ASSERT_EQ(server.clients.Count(), 1u); });
  server.clientLock.Leave();
  departure.join();
  EXPECT_EQ(server.clients.Count(), 0u);
}

// The device library may hold a client inside a call until its own callback has returned.
TEST_F(UsbServerDevicesTest, ADepartureDoesNotWaitForTheClientsThread) {
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
TEST_F(UsbServerDevicesTest, AClientWithoutAThreadEndsWithTheDeparture) {
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

TEST_F(UsbServerDevicesTest, AHundredArrivalsAndDeparturesLeaveNothingBehind) {
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

TEST_F(UsbServerDevicesTest, NobodyOwnsANameWithoutDevices) {
  EXPECT_FALSE(server.AnyManagerOwns("Piano"));  // no lock yet either
  StartServer();
  EXPECT_FALSE(server.AnyManagerOwns("Piano"));
}

TEST_F(UsbServerDevicesTest, PublishedNamesAreOwnedAlsoWhileTheDeviceIsAway) {
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

TEST_F(UsbServerDevicesTest, AskingKeepsTheCallersHolds) {
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
TEST_F(UsbServerDevicesTest, ANameIsOwnedAsTheDesktopShowsIt) {
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

TEST_F(UsbServerDevicesTest, EndpointsThatADevicePublishedAreThereOnItsReturn) {
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

// What belongs to whom is not a matter of names.
TEST_F(UsbServerDevicesTest, EndpointsOfOneNameBelongToTheirOwnDevices) {
  driver.AllowEqualNames();
  StartServer();
  const auto padPeer = Attach(pad);
  const auto phonePeer = Attach(phone);
  padPeer->SendFrame(EndpointMessage("/add_remote_destination", "Lead", 1));
  EXPECT_EQ(phonePeer->ReceiveFrame(), EndpointMessage("/add_remote_destination", "Lead", 1));
  phonePeer->SendFrame(EndpointMessage("/add_remote_destination", "Lead", 2));
  EXPECT_EQ(padPeer->ReceiveFrame(), EndpointMessage("/add_remote_destination", "Lead", 2));
  Settle(*phonePeer);
  const std::int64_t now = clock.Ticks() * 100;
  ASSERT_TRUE(driver.Write(1, {0x90, 0x3C, 0x7F}));
  EXPECT_EQ(padPeer->ReceiveFrame(), MidiMessage("Lead", 1, now, "\x90\x3C\x7F"));
  EXPECT_TRUE(phonePeer->Silent());
  ASSERT_TRUE(driver.Write(2, {0x80, 0x3C, 0x01}));
  EXPECT_EQ(phonePeer->ReceiveFrame(), MidiMessage("Lead", 2, now, "\x80\x3C\x01"));
  EXPECT_TRUE(padPeer->Silent());
}

TEST_F(UsbServerDevicesTest, ClientsStayWithTheServerThatMadeThem) {
  StartServer();
  const auto padPeer = Attach(pad);
  const auto phonePeer = Attach(phone);
  Settle(*phonePeer);
  theUsbServer = &NewServer();
  padPeer->SendFrame(MidiMessage("Piano", 1, 5, "\x90\x3C\x7F"));
  EXPECT_EQ(phonePeer->ReceiveFrame(), MidiMessage("Piano", 1, 5, "\x90\x3C\x7F"));
  padPeer->SendFrame(EndpointMessage("/add_remote_source", "Piano", 1));
  EXPECT_EQ(phonePeer->ReceiveFrame(), EndpointMessage("/add_remote_source", "Piano", 1));
  Settle(*padPeer);
}

TEST_F(UsbServerDevicesTest, ADeviceIsToldWhatTheOthersHavePublished) {
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
