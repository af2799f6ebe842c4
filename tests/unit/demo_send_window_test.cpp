// How many datagrams the demo lets be under way.
#include <gtest/gtest.h>

#include "demo/send_window.h"

namespace corvalint::demo {
namespace {

constexpr std::size_t kMost = SendWindow::kMostUnderWay;
constexpr SendWindow::Time kStart{std::chrono::hours(1)};
constexpr std::chrono::milliseconds kMoment{1};

TEST(DemoSendWindow, HasRoomUntilSoManyAreUnderWay) {
  SendWindow window;
  for (std::size_t sent = 0; sent < kMost; ++sent) EXPECT_TRUE(window.HasRoom(sent, 0, kStart));
  EXPECT_FALSE(window.HasRoom(kMost, 0, kStart));
}

TEST(DemoSendWindow, EachArrivalMakesRoomForOne) {
  SendWindow window;
  EXPECT_TRUE(window.HasRoom(0, 0, kStart));
  EXPECT_FALSE(window.HasRoom(kMost, 0, kStart));
  EXPECT_TRUE(window.HasRoom(kMost, 1, kStart));
  EXPECT_FALSE(window.HasRoom(kMost + 1, 1, kStart));
  EXPECT_TRUE(window.HasRoom(kMost + 1, kMost + 1, kStart));
}

TEST(DemoSendWindow, GivesUpWhatDoesNotArriveInTime) {
  SendWindow window;
  EXPECT_TRUE(window.HasRoom(0, 0, kStart));
  EXPECT_FALSE(window.HasRoom(kMost, 0, kStart + SendWindow::kPatience - kMoment));
  EXPECT_TRUE(window.HasRoom(kMost, 0, kStart + SendWindow::kPatience));
  // All of them were given up: there is room for as many again.
  EXPECT_TRUE(window.HasRoom(2 * kMost - 1, 0, kStart + SendWindow::kPatience));
  EXPECT_FALSE(window.HasRoom(2 * kMost, 0, kStart + SendWindow::kPatience));
}

TEST(DemoSendWindow, AnArrivalStartsThePatienceAnew) {
  SendWindow window;
  EXPECT_TRUE(window.HasRoom(0, 0, kStart));
  const SendWindow::Time later = kStart + SendWindow::kPatience - kMoment;
  EXPECT_TRUE(window.HasRoom(kMost, 1, later));
  EXPECT_FALSE(window.HasRoom(kMost + 1, 1, later + SendWindow::kPatience - kMoment));
  EXPECT_TRUE(window.HasRoom(kMost + 1, 1, later + SendWindow::kPatience));
}

TEST(DemoSendWindow, ALongPauseOfTheSenderCostsNoPatience) {
  SendWindow window;
  EXPECT_TRUE(window.HasRoom(kMost - 1, 0, kStart));
  const SendWindow::Time later = kStart + std::chrono::minutes(5);
  EXPECT_TRUE(window.HasRoom(kMost - 1, 0, later));
  EXPECT_FALSE(window.HasRoom(kMost, 0, later));
}

TEST(DemoSendWindow, WhatArrivesAfterItWasGivenUpNeverCountsTwice) {
  SendWindow window;
  EXPECT_TRUE(window.HasRoom(0, 0, kStart));
  EXPECT_TRUE(window.HasRoom(kMost, 0, kStart + SendWindow::kPatience));
  EXPECT_TRUE(window.HasRoom(kMost, kMost, kStart + SendWindow::kPatience));
  EXPECT_FALSE(window.HasRoom(2 * kMost, kMost, kStart + SendWindow::kPatience));
}

}  // namespace
}  // namespace corvalint::demo
