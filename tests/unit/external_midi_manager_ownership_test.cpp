// Whose endpoint a name is, and what a manager is told of MIDI for another device.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "support/manager_fixture.h"

namespace corvalint {
namespace {

using test::EndpointMessage;
using test::ExternalMidiManagerTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- whose endpoint it is

TEST_F(ExternalMidiManagerTest, KnowsItsEndpointsByName) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Synth", 8);
  EXPECT_TRUE(manager.HasEndpointNamed("Piano"));
  EXPECT_TRUE(manager.HasEndpointNamed("Synth"));
  EXPECT_FALSE(manager.HasEndpointNamed("piano"));
  EXPECT_FALSE(manager.HasEndpointNamed("Pian"));
  EXPECT_FALSE(manager.HasEndpointNamed(""));
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_FALSE(manager.HasEndpointNamed("Piano"));
  Calls();
}

TEST_F(ExternalMidiManagerTest, OwnsWhateverHasItsKeyOnceItHasAPort) {
  EXPECT_FALSE(manager.OwnsEndpoint("phone", "Piano"));
  manager.AddRemoteSource("Piano", 7);
  EXPECT_TRUE(manager.OwnsEndpoint("phone", "Piano"));
  EXPECT_TRUE(manager.OwnsEndpoint("phone", "no such name"));
  EXPECT_FALSE(manager.OwnsEndpoint("tablet", "Piano"));
  EXPECT_FALSE(manager.OwnsEndpoint("phon", "Piano"));
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  Calls();
}

TEST_F(ExternalMidiManagerTest, KeepsAHoldWhenItIsAskedWithoutAKey) {
  manager.AddRemoteSource("Piano", 7);
  {
    HoldScope restore(server.Lock());
    EXPECT_TRUE(manager.OwnsEndpoint("", "Piano"));
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 1u);
    EXPECT_FALSE(manager.OwnsEndpoint("", "Synth"));
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 2u);
    EXPECT_TRUE(manager.OwnsEndpoint("phone", "Synth"));
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 2u);
  }
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  Calls();
}

TEST_F(ExternalMidiManagerTest, AnnouncesByNameWhenItHasNoKey) {
  manager.SetDeviceKey("");
  manager.AddRemoteSource("Piano", 7);
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_THAT(Told(), ElementsAre(EndpointMessage("/add_remote_source", "Piano", 7),
                                  EndpointMessage("/remove_remote_source", "Piano", 7)));
  EXPECT_THAT(other.scripted.TakeQuestions(), ElementsAre("owns(, Piano)", "owns(, Piano)"));
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  Calls();
}

// --- the hook for MIDI that is addressed to another device

TEST_F(ExternalMidiManagerTest, TheHookGivesUpOneHoldAndASecondOneOnAHit) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Synth", 8);
  Calls();
  Told();
  const auto holdsAfter = [&](std::uint32_t id) CORVALINT_UNCHECKED_LOCKING {
    HoldScope restore(server.Lock());
    for (int i = 0; i < 3; ++i) server.Lock().Enter();
    manager.SendMidiToDestination("any name", id);
    return server.Lock().HoldsOfThisThread();
  };
  EXPECT_EQ(holdsAfter(9), 2u);
  EXPECT_EQ(holdsAfter(7), 2u);
  EXPECT_EQ(holdsAfter(8), 1u);
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  EXPECT_EQ(server.Lock().StrayLeaves(), 0u);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(ExternalMidiManagerTest, TheHookHarmsNothingWhenItIsCalledWithNoHold) {
  manager.AddRemoteDestination("Synth", 8);
  manager.SendMidiToDestination("Synth", 9);
  EXPECT_EQ(server.Lock().StrayLeaves(), 1u);
  manager.SendMidiToDestination("Synth", 8);
  EXPECT_EQ(server.Lock().StrayLeaves(), 3u);
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  EXPECT_TRUE(manager.HasEndpointNamed("Synth"));
  Calls();
}

TEST_F(ExternalMidiManagerTest, ANoticeToRealManagersLeavesTheLockAlone) {
  manager.AddRemoteDestination("Synth", 8);
  for (const std::int32_t id : {8, 9}) {
    server.NotifyOtherManagers("Synth", id, other);
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  }
  EXPECT_EQ(server.Lock().StrayLeaves(), 0u);
  Calls();
}

}  // namespace
}  // namespace corvalint
