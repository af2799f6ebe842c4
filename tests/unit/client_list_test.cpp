#include "clients/client_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <optional>
#include <thread>

#include "support/recording_client.h"

namespace corvalint {
namespace {

using test::RecordingClient;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

std::vector<DeviceClient*> Walked(const ClientList& list) {
  const ClientWalk walk(list);
  return {walk.begin(), walk.end()};
}

TEST(ClientList, HasOnlyTheClientThatIsAloneInIt) {
  ClientList list;
  test::RecordingClient one, other;
  EXPECT_FALSE(list.HasOnly(one));
  list.Append(one);
  EXPECT_TRUE(list.HasOnly(one));
  EXPECT_FALSE(list.HasOnly(other));
  list.Append(other);
  EXPECT_FALSE(list.HasOnly(one));
  list.Remove(one);
  EXPECT_FALSE(list.HasOnly(one));
  EXPECT_TRUE(list.HasOnly(other));
}

TEST(BorrowGate, LetsBorrowersInUntilItIsClosed) {
  BorrowGate gate;
  EXPECT_FALSE(gate.Drained());
  EXPECT_TRUE(gate.TryBorrow());
  EXPECT_TRUE(gate.TryBorrow());
  gate.Close();
  EXPECT_FALSE(gate.TryBorrow());
  EXPECT_FALSE(gate.Drained());
  gate.Return();
  EXPECT_FALSE(gate.Drained());
  gate.Return();
  EXPECT_TRUE(gate.Drained());
}

TEST(BorrowGate, IsDrainedAtOnceWhenNobodyIsInside) {
  BorrowGate gate;
  ASSERT_TRUE(gate.TryBorrow());
  gate.Return();
  EXPECT_FALSE(gate.Drained());
  gate.Close();
  EXPECT_TRUE(gate.Drained());
  gate.Close();
  EXPECT_TRUE(gate.Drained());
  EXPECT_FALSE(gate.TryBorrow());
}

// The owner writes plainly once the gate is drained: every borrower must have left, and be seen to.
TEST(BorrowGate, WhatBorrowersDidIsSeenByTheOwnerOfADrainedGate) {
  BorrowGate gate;
  std::array<int, 4> uses{};
  std::atomic<int> ready{0};
  std::vector<std::thread> borrowers;
  for (int& mine : uses) {
    borrowers.emplace_back([&] {
      while (gate.TryBorrow()) {
        const bool first = ++mine == 1;
        gate.Return();
        if (first) ++ready;
      }
    });
  }
  while (ready < 4) std::this_thread::yield();
  gate.Close();
  while (!gate.Drained()) std::this_thread::yield();
  for (int& mine : uses) {
    EXPECT_GE(mine, 1);
    mine = -1;
  }
  for (std::thread& borrower : borrowers) borrower.join();
  EXPECT_THAT(uses, ElementsAre(-1, -1, -1, -1));
}

TEST(ClientList, KeepsTheOrderOfArrival) {
  ClientList list;
  RecordingClient a, b, c;
  EXPECT_EQ(list.Count(), 0u);
  EXPECT_THAT(Walked(list), IsEmpty());
  list.Append(b);
  list.Append(a);
  list.Append(c);
  EXPECT_EQ(list.Count(), 3u);
  EXPECT_THAT(Walked(list), ElementsAre(&b, &a, &c));
  EXPECT_TRUE(list.Contains(a));
  list.Remove(a);
  EXPECT_FALSE(list.Contains(a));
  EXPECT_EQ(list.Count(), 2u);
  EXPECT_THAT(Walked(list), ElementsAre(&b, &c));
}

TEST(ClientList, RemovesEveryEntryOfAClientAndNoOther) {
  ClientList list;
  RecordingClient a, b, stranger;
  list.Append(a);
  list.Append(b);
  list.Append(a);
  list.Remove(stranger);
  EXPECT_EQ(list.Count(), 3u);
  list.Remove(a);
  EXPECT_THAT(Walked(list), ElementsAre(&b));
}

TEST(ClientWalk, BorrowsEachClientUntilItEnds) {
  ClientList list;
  RecordingClient a, b;
  list.Append(a);
  list.Append(b);
  {
    const ClientWalk walk(list);
    a.gate.Close();
    b.gate.Close();
    EXPECT_FALSE(a.gate.Drained());
    EXPECT_FALSE(b.gate.Drained());
  }
  EXPECT_TRUE(a.gate.Drained());
  EXPECT_TRUE(b.gate.Drained());
}

TEST(ClientWalk, LeavesOutAClientThatIsAboutToEnd) {
  ClientList list;
  RecordingClient a, b, c;
  list.Append(a);
  list.Append(b);
  list.Append(c);
  b.gate.Close();
  EXPECT_THAT(Walked(list), ElementsAre(&a, &c));
  EXPECT_TRUE(b.gate.Drained());
}

TEST(ClientWalk, IsACopyThatLaterChangesDoNotTouch) {
  ClientList list;
  RecordingClient a, b, c;
  list.Append(a);
  list.Append(b);
  const ClientWalk walk(list);
  list.Remove(a);
  list.Append(c);
  EXPECT_THAT(std::vector<DeviceClient*>(walk.begin(), walk.end()), ElementsAre(&a, &b));
  EXPECT_THAT(Walked(list), ElementsAre(&b, &c));
}

TEST(ClientWalk, TakesAnyNumberOfClientsInOrder) {
  for (const std::size_t total : {63u, 64u, 65u, 66u, 130u}) {
    ClientList list;
    std::deque<RecordingClient> devices(total);
    std::vector<DeviceClient*> expected;
    for (RecordingClient& device : devices) {
      list.Append(device);
      expected.push_back(&device);
    }
    EXPECT_THAT(Walked(list), ElementsAreArray(expected)) << total;
    for (RecordingClient& device : devices) {
      device.gate.Close();
      EXPECT_TRUE(device.gate.Drained()) << total;
    }
    EXPECT_THAT(Walked(list), IsEmpty()) << total;
  }
}

TEST(ClientWalk, LeavesClientsOutOfALongListToo) {
  ClientList list;
  std::deque<RecordingClient> devices(80);
  std::vector<DeviceClient*> expected;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    list.Append(devices[i]);
    if (i % 2 == 0) {
      devices[i].gate.Close();
    } else {
      expected.push_back(&devices[i]);
    }
  }
  EXPECT_THAT(Walked(list), ElementsAreArray(expected));
}

TEST(ClientWalk, VisitsOnlyThoseThatMayOwnSomethingOfAKey) {
  for (const std::size_t total : {3u, 80u}) {
    ClientList list;
    std::deque<RecordingClient> devices(total);
    std::vector<DeviceClient*> expected;
    for (std::size_t i = 0; i < total; ++i) {
      list.Append(devices[i]);
      devices[i].scripted.mayOwn = i % 2 == 0 ? "phone" : "pad";
      if (i % 2 == 0) expected.push_back(&devices[i]);
    }
    const ClientWalk walk(list, "phone");
    EXPECT_THAT((std::vector<DeviceClient*>{walk.begin(), walk.end()}), ElementsAreArray(expected));
    devices[1].gate.Close();
    EXPECT_TRUE(devices[1].gate.Drained()) << "passed over, not borrowed";
  }
}

// A client that was taken out of the list and is no longer borrowed is freed at once by its owner;
// walkers on other threads must never touch it again.
TEST(ClientWalk, ClientsComeAndGoWhileOthersWalk) {
  ClientList list;
  RecordingClient resident;
  list.Append(resident);
  std::atomic<bool> sending{true};
  std::atomic<int> walks{0};
  std::vector<std::thread> senders;
  for (int i = 0; i < 2; ++i) {
    senders.emplace_back([&] {
      while (sending) {
        for (DeviceClient* client : ClientWalk(list)) {
          if (client != &resident) client->SendFramed("abcd", 4);
        }
        ++walks;
      }
    });
  }
  while (walks == 0) std::this_thread::yield();
  for (int round = 0; round < 300; ++round) {
    std::optional<RecordingClient> visitor(std::in_place);
    list.Append(*visitor);
    std::this_thread::yield();
    list.Remove(*visitor);
    visitor->gate.Close();
    while (!visitor->gate.Drained()) std::this_thread::yield();
  }
  sending = false;
  for (std::thread& sender : senders) sender.join();
  EXPECT_THAT(Walked(list), ElementsAre(&resident));
}

}  // namespace
}  // namespace corvalint
