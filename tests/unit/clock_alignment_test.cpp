#include "protocol/clock_alignment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace corvalint {
namespace {

constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

TEST(ClockAlignment, StartsWithZeroesAndADriftRatioOfOne) {
  const ClockAlignment clock;
  EXPECT_EQ(clock.lastDeviceTime, 0);
  EXPECT_EQ(clock.clockOffset, 0);
  EXPECT_EQ(clock.clockOffsetCopy, 0);
  EXPECT_EQ(clock.midiTimeOffset, 0);
  EXPECT_EQ(clock.initHostTime, 0);
  EXPECT_EQ(clock.initOffset, 0);
  EXPECT_EQ(clock.driftRatio, 1.0);
}

TEST(ClockAlignment, InitialiseTakesTheOffsetEverywhere) {
  ClockAlignment clock;
  clock.Initialise(400, 1000);
  EXPECT_EQ(clock.lastDeviceTime, 400);
  EXPECT_EQ(clock.clockOffset, 600);
  EXPECT_EQ(clock.clockOffsetCopy, 600);
  EXPECT_EQ(clock.initOffset, 600);
  EXPECT_EQ(clock.midiTimeOffset, 600);
  EXPECT_EQ(clock.initHostTime, 1000);
}

TEST(ClockAlignment, InitialiseLeavesTheDriftRatioAlone) {
  ClockAlignment clock;
  clock.driftRatio = 0.25;
  clock.Initialise(400, 1000);
  EXPECT_EQ(clock.driftRatio, 0.25);
}

TEST(ClockAlignment, UpdateMovesTheOffsetsSeventyPercentOfTheWay) {
  ClockAlignment clock;
  clock.Initialise(0, 1000);   // offset 1000
  clock.Update(10000, 13000);  // measured 3000
  EXPECT_EQ(clock.lastDeviceTime, 10000);
  EXPECT_EQ(clock.clockOffset, 2400);     // 2100 + 300
  EXPECT_EQ(clock.midiTimeOffset, 1980);  // 1680 + 300
  EXPECT_EQ(clock.clockOffsetCopy, 1980);
  EXPECT_EQ(clock.initOffset, 1000);
  EXPECT_EQ(clock.initHostTime, 1000);
}

TEST(ClockAlignment, DriftRatioComesFromTheOldOffset) {
  ClockAlignment clock;
  clock.Initialise(0, 1000);
  clock.Update(10000, 13000);  // the offset was still the initial one
  EXPECT_EQ(clock.driftRatio, 0.0);
  clock.Update(20000, 23000);  // (1000 - 2400) / (23000 - 1000)
  EXPECT_EQ(clock.driftRatio, -1400.0 / 22000.0);
}

TEST(ClockAlignment, DriftIsTheInverseOfTheRatioAboveOne) {
  ClockAlignment clock;
  EXPECT_EQ(clock.Drift(), -0.5);
  clock.driftRatio = 0.25;
  EXPECT_EQ(clock.Drift(), 1.0 / 1.25 - 1.0);
}

TEST(ClockAlignment, UpdateBeforeInitialiseWorksFromZeroes) {
  ClockAlignment clock;
  clock.Update(1000, 11000);
  EXPECT_EQ(clock.driftRatio, 0.0);
  EXPECT_EQ(clock.clockOffset, 7000);
  EXPECT_EQ(clock.midiTimeOffset, 4900);
}

TEST(ClockAlignment, NegativeOffsetsTruncateTowardZero) {
  ClockAlignment clock;
  clock.Update(1, 0);  // measured -1: -0.7
  EXPECT_EQ(clock.clockOffset, 0);
  clock.Update(9, 0);  // -6.3
  EXPECT_EQ(clock.clockOffset, -6);
  EXPECT_EQ(clock.midiTimeOffset, -4);  // -4.2
}

// A fused multiply-add gives ...764 here.
TEST(ClockAlignment, ProductsAreRoundedBeforeTheyAreAdded) {
  ClockAlignment clock;
  clock.clockOffset = 1020075044177776;
  clock.Update(0, 218096705294903);
  EXPECT_EQ(clock.clockOffset, 458690206959765);
}

// With a weight of 0.3 the sum would stay just below.
TEST(ClockAlignment, OldWeightIsWhatOneMinusSeventyPercentGives) {
  ClockAlignment clock;
  clock.clockOffset = 1000000000000000000;
  clock.Update(0, 0);
  EXPECT_EQ(clock.clockOffset, static_cast<std::int64_t>(1e18 * (1.0 - 0.7)));
  EXPECT_NE(clock.clockOffset, static_cast<std::int64_t>(1e18 * 0.3));
}

TEST(ClockAlignment, DifferencesWrap) {
  ClockAlignment clock;
  clock.Initialise(kSmallest, 1);  // 1 - smallest
  EXPECT_EQ(clock.clockOffset, kSmallest + 1);
  EXPECT_EQ(clock.midiTimeOffset, kSmallest + 1);
}

TEST(ClockAlignment, ExtremeDeviceTimesAreSurvived) {
  ClockAlignment clock;
  clock.Initialise(kSmallest, 0);
  EXPECT_EQ(clock.clockOffset, kSmallest);
  for (const std::int64_t deviceTime : {kSmallest, kLargest, std::int64_t{0}, std::int64_t{-1}}) {
    clock.Update(deviceTime, 5);
    EXPECT_EQ(clock.lastDeviceTime, deviceTime);
  }
}

TEST(ClockAlignment, ASumOfTwoToTheSixtyThreeBecomesTheSmallestNumber) {
  ClockAlignment clock;
  clock.clockOffset = kLargest;
  clock.Update(0, kLargest);
  EXPECT_EQ(clock.clockOffset, kSmallest);
}

TEST(ClockAlignment, NoTimeSinceInitialiseGivesNoNumber) {
  ClockAlignment clock;
  clock.Initialise(10, 1000);
  clock.Update(10, 1000);
  EXPECT_TRUE(std::isnan(clock.driftRatio));
  EXPECT_TRUE(std::isnan(clock.Drift()));
  EXPECT_EQ(clock.clockOffset, 990);
}

TEST(ClockAlignment, NoTimeSinceInitialiseWithAnotherOffsetGivesInfinity) {
  ClockAlignment clock;
  clock.Initialise(10, 1000);
  clock.clockOffset = 1;
  clock.Update(10, 1000);
  EXPECT_TRUE(std::isinf(clock.driftRatio));
  EXPECT_EQ(clock.Drift(), -1.0);
}

TEST(ClockAlignment, ARatioOfMinusOneGivesAnInfiniteDrift) {
  ClockAlignment clock;
  clock.driftRatio = -1.0;
  EXPECT_EQ(clock.Drift(), std::numeric_limits<double>::infinity());
}

TEST(TruncateToInt64, TruncatesTowardZero) {
  EXPECT_EQ(TruncateToInt64(1.99), 1);
  EXPECT_EQ(TruncateToInt64(-1.99), -1);
  EXPECT_EQ(TruncateToInt64(-0.0), 0);
}

TEST(TruncateToInt64, WhatDoesNotFitBecomesTheSmallestNumber) {
  EXPECT_EQ(TruncateToInt64(9223372036854775808.0), kSmallest);
  EXPECT_EQ(TruncateToInt64(-9223372036854775808.0), kSmallest);
  EXPECT_EQ(TruncateToInt64(-1e300), kSmallest);
  EXPECT_EQ(TruncateToInt64(1e300), kSmallest);
  EXPECT_EQ(TruncateToInt64(std::numeric_limits<double>::infinity()), kSmallest);
  EXPECT_EQ(TruncateToInt64(std::numeric_limits<double>::quiet_NaN()), kSmallest);
  EXPECT_EQ(TruncateToInt64(9223372036854774784.0), 9223372036854774784);
}

}  // namespace
}  // namespace corvalint
