#include "service/host_time.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "platform/clock.h"
#include "support/fake_clock.h"

namespace corvalint {
namespace {

using test::FakeClock;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

struct Reading {
  std::int64_t ticks;
  std::int64_t nanoseconds;
};

void ExpectTime(const Reading& reading) {
  FakeClock clock(reading.ticks);
  EXPECT_EQ(HostTimeNanoseconds(), reading.nanoseconds) << "at " << reading.ticks << " ticks";
}

TEST(HostTime, IsTheCounterInNanoseconds) {
  ExpectTime({0, 0});
  ExpectTime({1, 100});
  ExpectTime({10, 1000});
  ExpectTime({10'000'000, 1'000'000'000});
  ExpectTime({600'000'000, 60'000'000'000});
}

TEST(HostTime, IsRightUpToTheLastTickBeforeTheProductWraps) {
  ExpectTime({9'223'372'036, 922'337'203'600});
}

TEST(HostTime, JumpsBelowZeroWhereTheProductWraps) {
  ExpectTime({9'223'372'037, -922'337'203'670});
  ExpectTime({9'223'372'038, -922'337'203'570});
}

TEST(HostTime, PassesZeroAgainAfterAWholeTurn) {
  ExpectTime({18'446'744'073, -70});
  ExpectTime({18'446'744'074, 29});
}

TEST(HostTime, WrapsForCountersAtTheEndsOfTheirRange) {
  ExpectTime({kMax, -100});
  ExpectTime({kMin, 0});
  ExpectTime({-1, -100});
}

std::int64_t OtherCounter() { return 3; }
std::int64_t OtherFrequency() { return 1; }

TEST(HostTime, DividesByTheFrequencyThatWasReadWhenTheLibraryWasLoaded) {
  EXPECT_EQ(PerformanceFrequency, 10'000'000);
  static constexpr ClockApi kOther{
      .counter = OtherCounter, .frequency = OtherFrequency, .sleep = nullptr, .localTime = nullptr};
  Install<ClockApi>(&kOther);
  EXPECT_EQ(HostTimeNanoseconds(), 300);
  Install<ClockApi>(nullptr);
}

TEST(HostTime, ReadsTheCounterOnceForEachTime) {
  FakeClock clock(0);
  clock.StepPerRead(10);
  EXPECT_EQ(HostTimeNanoseconds(), 0);
  EXPECT_EQ(HostTimeNanoseconds(), 1000);
  EXPECT_EQ(clock.Ticks(), 20);
}

TEST(WrappingTimes, AddAndSubtractModuloTwoToThe64th) {
  EXPECT_EQ(WrappingAdd(2, 3), 5);
  EXPECT_EQ(WrappingAdd(kMax, 1), kMin);
  EXPECT_EQ(WrappingAdd(kMin, -1), kMax);
  EXPECT_EQ(WrappingAdd(kMin, kMin), 0);
  EXPECT_EQ(WrappingSubtract(2, 3), -1);
  EXPECT_EQ(WrappingSubtract(kMin, 1), kMax);
  EXPECT_EQ(WrappingSubtract(kMax, -1), kMin);
  EXPECT_EQ(WrappingSubtract(0, kMin), kMin);
}

}  // namespace
}  // namespace corvalint
