// Clocks that run, jump and stand still, and the bytes that devices are answered in each case.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "support/log_capture.h"
#include "timing/clock_scenes.h"
#include "timing/scene_player.h"

namespace corvalint::timing {

void PrintTo(const ClockScene& scene, std::ostream* out) { *out << scene.name; }

namespace {

class TimeScenes : public testing::TestWithParam<ClockScene> {
  test::LogCapture log;  // what the clients log is not looked at
};

TEST_P(TimeScenes, AreAnsweredBitForBit) {
  ASSERT_FALSE(GetParam().steps.empty());
  for (const std::string& difference : PlayScene(GetParam())) ADD_FAILURE() << difference;
}

INSTANTIATE_TEST_SUITE_P(, TimeScenes,
                         testing::ValuesIn(ClockScenes().begin(), ClockScenes().end()),
                         [](const auto& scene) { return std::string(scene.param.name); });

// The comparison itself: each number of a step that is off by one bit is noticed.
TEST(ScenePlayer, NoticesOneBit) {
  const test::LogCapture log;
  for (int number = 0; number < 3; ++number) {
    ClockStep steps[] = {{ClockStep::kInit, 10, 400, 600, 0, 1000},
                         {ClockStep::kUpdate, 20, 1400, 600, 0, 2000}};
    EXPECT_TRUE(PlayScene({"right", steps}).empty());
    if (number == 0) steps[1].offset ^= 1;
    if (number == 1) steps[1].drift ^= 1;
    if (number == 2) steps[1].relayed ^= 1;
    EXPECT_EQ(PlayScene({"wrong", steps}).size(), 1u);
  }
}

}  // namespace
}  // namespace corvalint::timing
