#include "ports/local_osc_port_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/osc_port_fixture.h"

namespace corvalint {
namespace {

using namespace test;

class LocalOSCPortTableTest : public OscPortFixture {};

// --- keys

TEST(OscPortKey, IsHostAndSignedDecimalWithNothingBetween) {
  EXPECT_EQ(OscPortKey("127.0.0.1", 9000), "127.0.0.19000");
  EXPECT_EQ(OscPortKey("127.0.0.1", 0), "127.0.0.10");
  EXPECT_EQ(OscPortKey("", 65536 + 9000), "74536");
  EXPECT_EQ(OscPortKey("h", -1), "h-1");
  EXPECT_EQ(OscPortKey("h", INT32_MIN), "h-2147483648");
}

TEST_F(LocalOSCPortTableTest, ANewPortIsFreshAndNamedByBothItsKeys) {
  const PortPointer port = Ready(number, 7000);
  EXPECT_EQ(port->DestinationKey(), "127.0.0.17000");
  EXPECT_EQ(port->BindKey(), Key(number));
  EXPECT_TRUE(port->fresh);
  EXPECT_EQ(port->status, 1u);
  EXPECT_EQ(port->reportedStatus, 0u);
  EXPECT_EQ(table->Find("127.0.0.17000"), port);
  EXPECT_EQ(table->Find(Key(number)), nullptr);  // ports are not found by their bind key
  EXPECT_EQ(table->Count(), 1u);
}

TEST_F(LocalOSCPortTableTest, ASecondCreateWithTheSameDestinationGivesTheFirstPort) {
  const PortPointer first = Ready(number, 7000);
  const PortPointer second = table->CreatePort(7000, FreeUdpPort(), "127.0.0.1");
  EXPECT_EQ(second, first);
  EXPECT_FALSE(first->fresh);
  EXPECT_EQ(table->Count(), 1u);
  EndAll();
  EXPECT_EQ(owner.Take(), Packets{});  // nothing was reported again
  EXPECT_EQ(threads.Made(), 1);
  EXPECT_EQ(datagrams.Opened().size(), 1u);
}

TEST_F(LocalOSCPortTableTest, ASecondCreateWithTheSameBindPortGivesTheFirstPort) {
  const PortPointer first = Ready(number, 7000);
  EXPECT_EQ(table->CreatePort(7001, number, "127.0.0.1"), first);
  EXPECT_FALSE(first->fresh);
  EXPECT_EQ(table->Count(), 1u);
  EXPECT_EQ(table->Find("127.0.0.17001"), nullptr);
  EndAll();
  EXPECT_EQ(owner.Take(), Packets{});
  EXPECT_EQ(threads.Made(), 1);
}

TEST_F(LocalOSCPortTableTest, KeysOfOtherHostsCollideWhenTheirTextsDo) {
  const PortPointer first = table->CreatePort(9000, number, "127.0.0.1");
  EXPECT_EQ(table->CreatePort(0, FreeUdpPort(), "127.0.0.1900"), first);
  EXPECT_FALSE(first->fresh);
  EXPECT_EQ(table->Count(), 1u);
}

TEST_F(LocalOSCPortTableTest, ADestinationKeyMayBeAnotherPortsBindKey) {
  const std::uint16_t other = FreeUdpPort();
  const PortPointer first = Ready(number, other);
  const PortPointer second = Ready(other, number);
  EXPECT_NE(first, second);
  EXPECT_TRUE(first->fresh);
  EXPECT_EQ(table->Count(), 2u);
  EXPECT_EQ(table->Find(Key(other)), first);
  EXPECT_EQ(table->Find(Key(number)), second);
}

TEST_F(LocalOSCPortTableTest, TheDestinationKeyIsLookedAtBeforeTheBindKey) {
  const std::uint16_t other = FreeUdpPort();
  const PortPointer byBind = Ready(number, 7000);
  const PortPointer byDestination = Ready(other, 7001);
  EXPECT_EQ(table->CreatePort(7001, number, "127.0.0.1"), byDestination);
  EXPECT_FALSE(byDestination->fresh);
  EXPECT_TRUE(byBind->fresh);
  EXPECT_EQ(table->Count(), 2u);
}

// --- port numbers beyond sixteen bits

TEST_F(LocalOSCPortTableTest, ALargeNumberIsBoundByItsLowBitsUnderItsOwnKey) {
  const std::int32_t large = 65536 + number;
  const PortPointer port = Ready(large, program.Port());
  EXPECT_EQ(port->BindKey(), Key(large));
  EXPECT_EQ(datagrams.Binds(), (std::vector<ScriptedDatagrams::Bind>{{number, 0}}));
  ExpectAlive(number, Key(large));
}

TEST_F(LocalOSCPortTableTest, TheSameLowBitsAreTwoPortsOfWhichTheSecondHearsNothing) {
  const PortPointer first = Ready(number, 7000);
  const PortPointer second = Ready(65536 + number, 7001);
  EXPECT_NE(first, second);
  EXPECT_EQ(table->Count(), 2u);
  ExpectAlive(number, Key(number));
}

TEST_F(LocalOSCPortTableTest, ANegativeNumberKeepsItsSignInTheKey) {
  const std::int32_t negative = number - 65536;
  const PortPointer port = Ready(negative, program.Port() - 65536);
  EXPECT_EQ(port->DestinationKey(), Key(program.Port() - 65536));
  ExpectAlive(number, Key(negative));
  port->SendToDestination("low bits", 8);
  EXPECT_EQ(program.Receive(), "low bits");
}

TEST_F(LocalOSCPortTableTest, BindPortZeroIsAFreePort) {
  const PortPointer port = Ready(0, program.Port());
  const UdpSocketState bound = StateOfSocket(datagrams.Opened().front());
  EXPECT_EQ(bound.address, "127.0.0.1");
  EXPECT_NE(bound.port, 0);
  ExpectAlive(bound.port, Key(0));
}

// --- removing

TEST_F(LocalOSCPortTableTest, APortIsRemovedByItsDestinationKey) {
  Ready(number, 7000);
  Ready(FreeUdpPort(), 7001);
  table->RemovePort("127.0.0.17000");
  EXPECT_EQ(table->Count(), 1u);
  EXPECT_EQ(table->Find("127.0.0.17000"), nullptr);
  EXPECT_NE(table->Find("127.0.0.17001"), nullptr);
}

TEST_F(LocalOSCPortTableTest, UnknownKeysAndBindKeysRemoveNothing) {
  const PortPointer port = Ready(number, 7000);
  table->RemovePort(Key(number));
  table->RemovePort("127.0.0.1700");
  table->RemovePort("127.0.0.170000");
  table->RemovePort("");
  EXPECT_EQ(table->Find("127.0.0.17000"), port);
  EXPECT_TRUE(port->Running());
  ExpectAlive(number, Key(number));
  table->RemovePort("127.0.0.17000");
  table->RemovePort("127.0.0.17000");
  EXPECT_EQ(table->Count(), 0u);
}

TEST_F(LocalOSCPortTableTest, ARemovedPortEndsAndClosesItsSocket) {
  PortPointer port = Ready(number, 7000);
  table->RemovePort("127.0.0.17000");
  EXPECT_FALSE(port->Running());
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(port.use_count(), 1);  // the thread has let it go
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_FALSE(StateOfUdpPort(number).has_value());
  port.reset();
  EXPECT_EQ(datagrams.WakersOpenNow(), 0);
}

TEST_F(LocalOSCPortTableTest, APortIsDestroyedByItsOwnThreadWhenNobodyElseHasIt) {
  std::weak_ptr<LocalOSCPort> port = Ready(number, 7000);
  EXPECT_FALSE(port.expired());
  table->RemovePort("127.0.0.17000");
  threads.JoinAll();
  EXPECT_TRUE(port.expired());
  EXPECT_EQ(datagrams.WakersOpenNow(), 0);
}

// The old port's thread may not have closed its socket yet, or not even have begun to run.
TEST_F(LocalOSCPortTableTest, APortIsThereAgainRightAfterItWasRemoved) {
  for (int round = 0; round < 300; ++round) {
    table->CreatePort(program.Port(), number, "127.0.0.1");
    if (round % 3 != 0) owner.Next();
    table->RemovePort(Key(program.Port()));
  }
  table->CreatePort(program.Port(), number, "127.0.0.1");
  EXPECT_EQ(threads.Made(), 301);
  program.Send(number, "too early");  // may come before the bind
  while (table->Find(Key(program.Port()))->status != 1u) std::this_thread::yield();
  program.Send(number, "here");
  while (owner.Next() != PortData(Key(number), "here")) {
  }
  for (const auto& [port, result] : datagrams.Binds()) {
    EXPECT_EQ(result, 0) << port;
  }
}

// Its bind would fail, and never be tried again.
TEST_F(LocalOSCPortTableTest, APortWaitsUntilItsPredecessorHasClosedItsSocket) {
  std::atomic<bool> inside{false}, mayLeave{false};
  Ready();
  owner.WhenSending([&] {
    if (inside.exchange(true)) return;
    while (!mayLeave) std::this_thread::yield();
  });
  program.Send(number, "slow");
  EXPECT_EQ(owner.Next(), PortData(Key(number), "slow"));
  table->RemoveAll();
  clock.WhenSleeping([&](std::uint32_t milliseconds) {
    EXPECT_EQ(milliseconds, 1u);
    if (!mayLeave) {
      EXPECT_EQ(StateOfBoundPort(number).port, number);
    }
    mayLeave = true;
  });
  Ready();
  EXPECT_TRUE(mayLeave.exchange(true));
  EXPECT_EQ(datagrams.Binds(), (std::vector<ScriptedDatagrams::Bind>{{number, 0}, {number, 0}}));
  ExpectAlive(number, Key(number));
  clock.WhenSleeping(nullptr);
  EndAll();
}

TEST_F(LocalOSCPortTableTest, PortsAreRemovedFromTheLastToTheFirst) {
  std::vector<PortPointer> ports;  // which keep their wakers' numbers from being used again
  for (std::int32_t i = 0; i < 4; ++i) ports.push_back(Ready(FreeUdpPort(), 7000 + i));
  table->RemoveAll();
  const std::vector<int> made = datagrams.Wakers();
  EXPECT_EQ(datagrams.Woken(), std::vector<int>(made.rbegin(), made.rend()));
  EXPECT_EQ(made.size(), 4u);
  EXPECT_EQ(table->Count(), 0u);
}

// The client's own thread creates while the one that disconnects the device empties the table.
TEST_F(LocalOSCPortTableTest, NoPortIsLeftRunningByACreateAndARemoveAtOnce) {
  std::atomic<bool> ends{false};
  std::thread disconnects([&] {
    while (!ends) table->RemoveAll();
  });
  for (int i = 0; i < 300; ++i) {
    const PortPointer port = table->CreatePort(7000 + i % 2, 0, i % 3 == 0 ? "a" : "b");
    ASSERT_NE(port, nullptr);
    table->Find(port->DestinationKey());
  }
  ends = true;
  disconnects.join();
  table->RemoveAll();
  EXPECT_EQ(table->Count(), 0u);
  threads.JoinAll();  // never ends when a port was forgotten
  EXPECT_EQ(datagrams.OpenNow(), 0u);
}

// --- the end of the table

TEST_F(LocalOSCPortTableTest, AShutTableMakesNoPort) {
  const PortPointer port = Ready(number, 7000);
  table->Shut();
  EXPECT_EQ(table->CreatePort(7001, FreeUdpPort(), "127.0.0.1"), nullptr);
  EXPECT_EQ(table->Count(), 1u);
  EXPECT_EQ(threads.Made(), 1);
  // What is there is still found, and removed.
  EXPECT_EQ(table->CreatePort(7000, FreeUdpPort(), "127.0.0.1"), port);
  table->RemovePort("127.0.0.17000");
  EXPECT_EQ(table->Count(), 0u);
}

TEST_F(LocalOSCPortTableTest, ATableThatIsEmptiedIsNotShut) {
  Ready(number, 7000);
  table->RemoveAll();
  Ready(number, 7000);
  ExpectAlive(number, Key(number));
}

TEST_F(LocalOSCPortTableTest, TheEndOfTheTableStopsItsPorts) {
  const PortPointer port = Ready();
  EndAll();
  EXPECT_FALSE(port->Running());
  EXPECT_EQ(console.Take(), "Finished\n");
}

// Its owner is gone the moment after.
TEST_F(LocalOSCPortTableTest, TheEndOfTheTableWaitsForAPortInsideItsOwner) {
  std::atomic<bool> inside{false}, mayLeave{false}, left{false};
  Ready();
  owner.WhenSending([&] {
    inside = true;
    while (!mayLeave) std::this_thread::yield();
    left = true;
  });
  program.Send(number, "slow");
  while (!inside) std::this_thread::yield();
  clock.WhenSleeping([&](std::uint32_t milliseconds) {
    EXPECT_EQ(milliseconds, 10u);
    if (mayLeave) return;
    EXPECT_FALSE(left);
    mayLeave = true;
  });
  table.reset();
  EXPECT_TRUE(left);
  clock.WhenSleeping(nullptr);
  threads.JoinAll();
}

// A port that is still asleep after the end of the table finds nobody to report to.
TEST_F(LocalOSCPortTableTest, APortThatOutlivesItsTableReportsNothing) {
  datagrams.OpenAnswers({-1});
  std::atomic<bool> asleep{false}, mayWake{false};
  clock.WhenSleeping([&](std::uint32_t milliseconds) {
    if (milliseconds != 5000) return;
    asleep = true;
    while (!mayWake) std::this_thread::yield();
  });
  table->CreatePort(7000, number, "127.0.0.1");
  EXPECT_EQ(owner.Next(), PortReport(Key(number), 3));
  while (!asleep) std::this_thread::yield();
  table.reset();
  mayWake = true;
  threads.JoinAll();
  EXPECT_EQ(owner.Take(), Packets{});
}

// --- no thread

TEST_F(LocalOSCPortTableTest, APortWithoutAThreadStaysSilentUntilItIsRemoved) {
  threads.RefuseNext();
  PortPointer port = table->CreatePort(7000, number, "127.0.0.1");
  EXPECT_EQ(log.Count("ERROR thread could not be started"), 1);
  EXPECT_EQ(table->CreatePort(7000, number, "127.0.0.1"), port);
  EXPECT_TRUE(datagrams.Opened().empty());
  table->RemovePort("127.0.0.17000");
  EXPECT_FALSE(port->Running());
  EXPECT_EQ(port.use_count(), 1);  // nobody keeps it
  Ready(number, 7000);
  ExpectAlive(number, Key(number));
}

}  // namespace
}  // namespace corvalint
