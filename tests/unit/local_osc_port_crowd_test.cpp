#include <gtest/gtest.h>

#include "support/osc_port_fixture.h"

namespace corvalint {
namespace {

using namespace test;

// A port whose device does not keep pace.
class CrowdedPort : public OscPortFixture {
 protected:
  // A ready port with a datagram that waits for the device.
  PortPointer Crowded() {
    PortPointer port = Ready();
    owner.crowded = true;
    program.Send(number, "waits");
    EXPECT_TRUE(clock.WaitForSleeps(3));
    return port;
  }
};

TEST_F(CrowdedPort, LeavesDatagramsWhereTheyAreUntilThereIsRoom) {
  Crowded();
  EXPECT_EQ(owner.Take(), Packets{});
  EXPECT_GT(StateOfBoundPort(number).waiting, 0u);
  owner.crowded = false;
  EXPECT_EQ(owner.Next(), PortData(Key(number), "waits"));
}

TEST_F(CrowdedPort, AsksEverMoreSeldomUpToSixteenMilliseconds) {
  Crowded();
  ASSERT_TRUE(clock.WaitForSleeps(7));
  Sleeps sleeps = clock.TakeSleeps();
  sleeps.resize(7);
  EXPECT_EQ(sleeps, (Sleeps{1, 2, 4, 8, 16, 16, 16}));
}

TEST_F(CrowdedPort, AsksAgainAfterAMillisecondOnceTheDeviceHasTakenSomething) {
  Crowded();
  program.Send(number, "waits too");
  Sleeps again;  // the port's thread's
  owner.WhenSending([&] {
    owner.crowded = true;
    clock.WhenSleeping([&](std::uint32_t milliseconds) {
      again.push_back(milliseconds);
      if (again.size() < 2) return;
      owner.WhenSending(nullptr);
      owner.crowded = false;
    });
  });
  owner.crowded = false;
  EXPECT_EQ(owner.Next(), PortData(Key(number), "waits"));
  EXPECT_EQ(owner.Next(), PortData(Key(number), "waits too"));
  EXPECT_EQ(again, (Sleeps{1, 2}));
  clock.WhenSleeping(nullptr);  // the table's end may sleep too
}

TEST_F(CrowdedPort, IsRemovedAtOnceAndLeavesItsNumberToTheNext) {
  Crowded();
  table->RemovePort(Key(program.Port()));
  Ready();
  owner.crowded = false;
  ExpectAlive(number, Key(number));
}

TEST_F(CrowdedPort, StillSendsToItsDestination) {
  const PortPointer port = Crowded();
  port->SendToDestination("out", 3);
  EXPECT_EQ(program.Receive(), "out");
}

TEST_F(CrowdedPort, EndsWithItsTable) {
  Crowded();
  EndAll();
  EXPECT_EQ(owner.Take(), Packets{});
}

}  // namespace
}  // namespace corvalint
