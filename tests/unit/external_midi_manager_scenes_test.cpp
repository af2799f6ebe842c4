// What several threads, or calls that come while another one is under way, do to a manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "platform/native_mutex.h"
#include "ports/external_midi_manager.h"
#include "support/console_capture.h"
#include "support/fake_virtual_midi.h"
#include "support/recording_client.h"
#include "support/source_port.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using test::EndpointMessage;
using test::SendToSourcePort;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint8_t kNote[] = {0x90, 0x3C, 0x64};

// A function in place of the controller.
class Controller final : public ExternalMidiManagerDelegate {
 public:
  void ExternalMidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& name,
                            std::uint32_t id, std::uint32_t, std::int64_t timestamp,
                            const std::string& deviceKey) override {
    if (whenReceived) whenReceived();
    if (server != nullptr) {
      server->SendMidiToOwners(data, count, name, static_cast<std::int32_t>(id), timestamp,
                               deviceKey);
    }
  }

  UsbServer* server = nullptr;
  std::function<void()> whenReceived;
};

class ManagerScenesTest : public ::testing::Test {
 protected:
  ManagerScenesTest() : manager(server, server.Lock(), names), own(manager) {
    manager.SetDeviceKey("phone");
    manager.SetDelegate(&controller);
    server.clients.Append(own);
    server.clients.Append(other);
  }

  test::FakeVirtualMidi driver;
  test::ConsoleCapture console;
  test::TestServer server;
  DesktopNames names;
  Controller controller;
  ExternalMidiManager manager;
  test::RecordingClient own;
  test::RecordingClient other;
};

// --- additions

TEST_F(ManagerScenesTest,
       AnEndpointIsAnnouncedOnceItIsThereWithTheClientLockHeldAndNotTheManagers) {
  int announced = 0;
  other.whenSent = [&] {
    ++announced;
    EXPECT_EQ(manager.PublishedEndpoints().size(), static_cast<std::size_t>(announced));
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 2u);
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
    EXPECT_EQ(console.Take(), "");
  };
  manager.AddRemoteSource("Piano", 7);  // makes a port
  EXPECT_EQ(console.Take(), "sending /add_remote_source: Piano || 7 \n");
  manager.AddRemoteDestination("Piano", 8);  // has its place on that port
  EXPECT_EQ(console.Take(), "sending /add_remote_destination: Piano || 8 \n");
  manager.AddRemoteDestination("Organ", 9);
  EXPECT_EQ(announced, 3);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1", "create(Organ) = 2"));
}

// --- removals

TEST_F(ManagerScenesTest, ASourceIsAnnouncedAsRemovedWhileItIsThereAndBothLocksAreHeld) {
  manager.AddRemoteSource("Piano", 7);
  other.whenSent = [&] {
    EXPECT_TRUE(manager.HasEndpointNamed("Piano"));
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 2u);
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 1u);
    EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1"));
    EXPECT_EQ(console.Take(), "sending /add_remote_source: Piano || 7 \n");
  };
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_EQ(console.Take(), "sending /remove_remote_source: Piano || 7 \n");
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("close(1)"));
}

TEST_F(ManagerScenesTest, ADestinationIsAnnouncedAsRemovedWithTheManagersLockReleased) {
  manager.AddRemoteDestination("Synth", 8);
  other.whenSent = [&] {
    EXPECT_TRUE(manager.HasEndpointNamed("Synth"));
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 2u);
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
    EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Synth) = 1"));
  };
  manager.RemoveRemoteDestination("Synth", 8);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("close(1)"));
}

thread_local std::vector<const NativeMutex*> entered;

TEST_F(ManagerScenesTest, EveryOperationEntersTheClientLockBeforeTheManagers) {
  MutexApi watched = MutexApi::System();
  watched.enter = [](NativeMutex& mutex) {
    entered.push_back(&mutex);
    MutexApi::System().enter(mutex);
  };
  Install<MutexApi>(&watched);
  const auto nativeOf = [](CriticalSection& section) {
    entered.clear();
    { CriticalSectionScope hold(section); }
    return entered.at(0);
  };
  const NativeMutex* const clientLock = nativeOf(server.clientLock);
  const NativeMutex* const midiLock = nativeOf(server.Lock());
  ASSERT_NE(clientLock, midiLock);

  const std::function<void()> operations[] = {
      [&] { manager.AddRemoteSource("Piano", 7); },
      [&] { manager.AddRemoteDestination("Piano", 8); },
      [&] { manager.RemoveRemoteSource("Piano", 7); },
      [&] { manager.RemoveRemoteDestination("Piano", 8); },
  };
  std::vector<std::vector<const NativeMutex*>> orders;
  for (const auto& operation : operations) {
    entered.clear();
    operation();
    std::erase_if(entered,
                  [&](const NativeMutex* lock) { return lock != clientLock && lock != midiLock; });
    orders.push_back(entered);
  }
  Install<MutexApi>(nullptr);
  for (const auto& order : orders) {
    ASSERT_FALSE(order.empty());
    EXPECT_EQ(order[0], clientLock);
    EXPECT_THAT(order, ::testing::Contains(midiLock));
  }
  driver.TakeCalls();
}

// One device removes a source while the host announces one of its own: neither may wait for the
// lock that the other one holds.
TEST_F(ManagerScenesTest, ARemovalThatWaitsForTheClientLockKeepsNoOtherLock) {
  manager.AddRemoteSource("Piano", 7);
  std::future<void> removal, walk;
  bool walked = false;
  {
    CriticalSectionScope hold(server.clientLock);
    std::promise<void> begun;
    removal = std::async(std::launch::async, [&] {
      begun.set_value();
      manager.RemoveRemoteSource("Piano", 7);
    });
    begun.get_future().wait();
    walk = std::async(std::launch::async, [&] {
      for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(manager.HasEndpointNamed("Piano"));
        std::this_thread::yield();
      }
    });
    walked = walk.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  }
  removal.wait();
  walk.wait();
  EXPECT_TRUE(walked);
  EXPECT_FALSE(manager.HasEndpointNamed("Piano"));
  driver.TakeCalls();
}

TEST_F(ManagerScenesTest, ADestinationThatASecondStreamRemovesMeanwhileIsClosedOnce) {
  manager.AddRemoteDestination("Synth", 8);
  other.whenSent = [&] {
    other.whenSent = nullptr;
    manager.RemoveRemoteDestination("Synth", 8);
  };
  other.TakePackets();
  manager.RemoveRemoteDestination("Synth", 8);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Synth) = 1", "close(1)"));
  const std::string removed = EndpointMessage("/remove_remote_destination", "Synth", 8);
  EXPECT_THAT(other.TakePackets(), ElementsAre(removed, removed));
  EXPECT_THAT(manager.PublishedEndpoints(), IsEmpty());
}

TEST_F(ManagerScenesTest, ADestinationThatCameBackMeanwhileStays) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Piano", 8);
  other.whenSent = [&] {
    other.whenSent = nullptr;
    manager.RemoveRemoteDestination("Piano", 8);
    manager.AddRemoteDestination("Piano", 8);
  };
  manager.RemoveRemoteDestination("Piano", 8);
  EXPECT_EQ(manager.PublishedEndpoints().size(), 2u);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1"));
}

// --- a driver that waits

TEST_F(ManagerScenesTest, ClosingAPortLetsACallbackInProgressFinish) {
  controller.server = &server;
  for (const EndpointKind last : {EndpointKind::source, EndpointKind::destination}) {
    manager.AddRemoteSource("Piano", 7);
    manager.AddRemoteDestination("Piano", 8);
    ASSERT_THAT(driver.TakeCalls(), ::testing::SizeIs(1));
    const int port = last == EndpointKind::source ? 1 : 2;
    std::promise<void> inside, closing;
    controller.whenReceived = [&] {
      inside.set_value();
      closing.get_future().wait();
    };
    driver.WhenClosing([&](int) { closing.set_value(); });
    std::thread desktop([&] { driver.Write(port, {0xF8}); });
    inside.get_future().wait();
    // The callback goes on only when the close has begun, and then wants both locks and the names.
    if (last == EndpointKind::source) {
      manager.RemoveRemoteDestination("Piano", 8);
      manager.RemoveRemoteSource("Piano", 7);
    } else {
      manager.RemoveRemoteSource("Piano", 7);
      manager.RemoveRemoteDestination("Piano", 8);
    }
    desktop.join();
    // The fake fails the test when its close has to give up waiting.
    EXPECT_THAT(driver.TakeCalls(), ElementsAre("close(" + std::to_string(port) + ")"));
  }
}

TEST_F(ManagerScenesTest, PortsComeAndGoWhileTheDesktopAndTheDevicePlay) {
  controller.server = &server;
  std::atomic<bool> playing{true};
  std::atomic<int> newest{0};
  driver.WhenCreating([&](int port) { newest = port; });
  std::thread desktop([&] {
    while (playing) {
      const int port = newest;
      if (port > 1) driver.Write(port - 1, {0xF8});
      if (port > 0) driver.CallBack(port, {0xF8});
      std::this_thread::yield();
    }
  });
  std::thread device([&] {
    while (playing) {
      SendToSourcePort(manager, kNote, 3, 7);
      server.NotifyOtherManagers("Piano", 8, other);
      server.SendMidiToOwners(kNote, 3, "Piano", 8, 0, "");
      std::this_thread::yield();
    }
  });
  for (int round = 0; round < 100; ++round) {
    manager.AddRemoteSource("Piano", 7);
    manager.AddRemoteDestination("Piano", 8);
    EXPECT_EQ(manager.PublishedEndpoints().size(), 2u);
    manager.RemoveRemoteSource("Piano", 7);
    manager.RemoveRemoteDestination("Piano", 8);
  }
  playing = false;
  desktop.join();
  device.join();
  EXPECT_THAT(manager.PublishedEndpoints(), IsEmpty());
  const auto calls = driver.TakeCalls();
  const auto count = [&](const std::string& what) {
    return std::count_if(calls.begin(), calls.end(),
                         [&](const std::string& call) { return call.rfind(what, 0) == 0; });
  };
  EXPECT_EQ(count("create("), 100);
  EXPECT_EQ(count("close("), 100);
  EXPECT_EQ(server.Lock().StrayLeaves(), 0u);
}

// --- a driver that is slow to make a port

TEST_F(ManagerScenesTest, AnIdThatASecondStreamPublishesMeanwhileIsKnownAfterAll) {
  driver.AllowEqualNames();
  driver.WhenCreating([&](int) {
    driver.WhenCreating(nullptr);
    manager.AddRemoteSource("Piano", 7);
  });
  manager.AddRemoteSource("Piano", 7);
  EXPECT_THAT(driver.TakeCalls(),
              ElementsAre("create(Piano) = 1", "create(Piano) = 2", "close(1)"));
  EXPECT_THAT(other.TakePackets(), ElementsAre(EndpointMessage("/add_remote_source", "Piano", 7)));
  EXPECT_EQ(console.Take(), "sending /add_remote_source: Piano || 7 \n");
  EXPECT_EQ(manager.PublishedEndpoints().size(), 1u);
  EXPECT_TRUE(names.Contains("Piano"));
}

TEST_F(ManagerScenesTest, APortThatASecondStreamMakesMeanwhileTakesTheRecord) {
  driver.WhenCreating([&](int) {
    driver.WhenCreating(nullptr);
    manager.AddRemoteDestination("Piano", 8);
  });
  manager.AddRemoteSource("Piano", 7);
  // The first one holds the name while the second asks for it.
  EXPECT_THAT(driver.TakeCalls(),
              ElementsAre("create(Piano) = 1", "create(Piano) = 0", "close(1)"));
  EXPECT_EQ(manager.PublishedEndpoints().size(), 2u);
  EXPECT_EQ(other.TakePackets().size(), 2u);
}

TEST_F(ManagerScenesTest, PlayedNotesDoNotWaitForAPortThatIsBeingMade) {
  manager.AddRemoteSource("Piano", 7);
  bool playedInTime = false;
  std::future<void> player;
  driver.WhenCreating([&](int) {
    player = std::async(std::launch::async, [&] {
      SendToSourcePort(manager, kNote, 3, 7);
      server.SendMidiToOwners(kNote, 3, "Piano", 7, 0, "phone");
    });
    playedInTime = player.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  });
  manager.AddRemoteSource("Organ", 9);
  player.wait();
  EXPECT_TRUE(playedInTime);
  EXPECT_THAT(driver.TakeCalls(),
              ElementsAre("create(Piano) = 1", "create(Organ) = 2", "send(1, 90 3C 64)"));
}

}  // namespace
}  // namespace corvalint
