#include "protocol/midi_routes.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>

#include "platform/native_mutex.h"
#include "support/clear_desktop.h"
#include "support/manager_fixture.h"

namespace corvalint {
namespace {

// A device's routes over its manager and the desktop's destinations.
class MidiRoutesTest : public test::ExternalMidiManagerTest {
 protected:
  MidiRoutesTest() { test::ClearDesktop(); }
  ~MidiRoutesTest() override {
    test::ClearDesktop();
    Calls();  // what the driver is asked for is not these tests' business
  }

  static MidiDestinationPointer AddDestination(std::int32_t id) {
    const auto destination = std::make_shared<MidiDestinationEndpoint>();
    destination->uniqueId = id;
    MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
    CriticalSectionScope hold(registry.listLock);
    registry.Append(destination);
    return destination;
  }

  MidiRoutes routes{manager};
};

TEST_F(MidiRoutesTest, LeadsToTheSourcesPortAndToEveryDestinationOfTheId) {
  manager.AddRemoteSource("Piano", 7);
  const auto one = AddDestination(7);
  AddDestination(8);
  const auto two = AddDestination(7);
  const MidiRoute& route = routes.To(7);
  ASSERT_TRUE(route.source);
  EXPECT_EQ(route.source.record->name, "Piano");
  EXPECT_EQ(route.destinations, (std::vector{one, two}));
}

TEST_F(MidiRoutesTest, APublishedDestinationIsNoWayForTheDevicesMidi) {
  manager.AddRemoteDestination("Piano", 7);
  EXPECT_FALSE(routes.To(7).source);
}

TEST_F(MidiRoutesTest, AnUnchangedRouteIsTheSameOne) {
  MidiRoute& route = routes.To(7);
  route.othersNotified = true;
  routes.To(8);
  EXPECT_TRUE(routes.To(7).othersNotified);
}

TEST_F(MidiRoutesTest, APortThatComesOrGoesIsNoticedAtOnce) {
  EXPECT_FALSE(routes.To(7).source);
  manager.AddRemoteSource("Piano", 7);
  EXPECT_TRUE(routes.To(7).source);
  manager.AddRemoteDestination("Piano", 8);
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_FALSE(routes.To(7).source);
  EXPECT_FALSE(routes.To(9).source);
  manager.AddRemoteSource("Piano", 9);  // to the port that is there already
  EXPECT_TRUE(routes.To(9).source);
  EXPECT_FALSE(routes.To(7).source);
}

// The port has been looked for and the destinations have not: the route that is just being put
// together knows nothing of the port, and the next message must look again.
TEST_F(MidiRoutesTest, APortThatComesInTheMiddleOfALookUpIsFoundByTheNextMessage) {
  static const NativeMutex* watched;
  static std::function<void()> beforeEntering;
  static MutexApi table;
  watched = nullptr;
  table = MutexApi::System();
  table.enter = [](NativeMutex& mutex) {
    if (watched == nullptr) watched = &mutex;
    if (watched == &mutex && beforeEntering) std::exchange(beforeEntering, nullptr)();
    MutexApi::System().enter(mutex);
  };
  Install<MutexApi>(&table);
  GetMidiEndpointRegistry().DestinationCount();  // enters the list's lock, and only that
  beforeEntering = [this] { manager.AddRemoteSource("Piano", 7); };
  EXPECT_FALSE(routes.To(7).source);
  EXPECT_TRUE(routes.To(7).source);
  Install<MutexApi>(nullptr);
}

TEST_F(MidiRoutesTest, ADestinationThatComesOrGoesIsNoticedAtOnce) {
  EXPECT_TRUE(routes.To(7).destinations.empty());
  const auto destination = AddDestination(7);
  EXPECT_EQ(routes.To(7).destinations, (std::vector{destination}));
  test::ClearDesktop();
  EXPECT_TRUE(routes.To(7).destinations.empty());
}

TEST_F(MidiRoutesTest, KeepsNoShareOfWhatIsGoneBeyondTheNextMessage) {
  auto destination = AddDestination(7);
  routes.To(7);
  const std::weak_ptr<MidiDestinationEndpoint> watched = destination;
  destination.reset();
  test::ClearDesktop();
  routes.To(8);  // for whatever id
  EXPECT_TRUE(watched.expired());
}

TEST_F(MidiRoutesTest, IdsThatAreMadeUpDoNotFillTheMemory) {
  const auto destination = AddDestination(7);
  routes.To(7);
  const long before = destination.use_count();
  for (std::int32_t id = 1000; id < 1255; ++id) routes.To(id);
  EXPECT_EQ(destination.use_count(), before);
  routes.To(5000);  // one more than it remembers
  EXPECT_EQ(destination.use_count(), before - 1);
  EXPECT_EQ(routes.To(7).destinations, (std::vector{destination}));
}

}  // namespace
}  // namespace corvalint
