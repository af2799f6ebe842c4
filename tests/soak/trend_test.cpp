// The judge of the long runs: what grows is found out, and what only sways is not.
#include "soak/trend.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>

namespace corvalint::soak {
namespace {

class TrendTest : public testing::Test {
 protected:
  // What the judge says of 200 samples of one quantity.
  static bool Good(const Quantity& quantity, double (*sample)(int)) {
    Trend trend({quantity}, 200);
    for (int i = 0; i < 200; ++i) trend.Add(static_cast<std::uint64_t>(i), {sample(i)});
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> nowhere(std::fopen("/dev/null", "w"),
                                                                  std::fclose);
    return trend.Judge(nowhere.get());
  }
};

TEST_F(TrendTest, WhatStaysIsFlat) {
  EXPECT_TRUE(Good({"threads", 0.5, 0}, [](int) { return 12.0; }));
}

TEST_F(TrendTest, OneMoreAtTheEndIsGrowth) {
  EXPECT_FALSE(Good({"threads", 0.5, 0}, [](int i) { return i < 100 ? 12.0 : 13.0; }));
}

TEST_F(TrendTest, ASlowLeakIsGrowth) {
  EXPECT_FALSE(Good({"heap", 1000, 0}, [](int i) { return 1e6 + 8.0 * i; }));
}

TEST_F(TrendTest, WhatSwaysOrShrinksIsFlat) {
  EXPECT_TRUE(Good({"heap", 1000, 0}, [](int i) { return 1e6 + (i % 2 == 0 ? 4000 : 0); }));
  EXPECT_TRUE(Good({"heap", 1000, 0}, [](int i) { return 1e6 - 100.0 * i; }));
}

TEST_F(TrendTest, ACeilingCountsForEverySample) {
  EXPECT_TRUE(Good({"log", -1, 1000}, [](int i) { return 5.0 * i; }));
  EXPECT_FALSE(Good({"log", -1, 1000}, [](int i) { return i == 77 ? 1001.0 : 5.0; }));
}

TEST_F(TrendTest, FewSamplesSayNothing) {
  Trend trend({{"threads", 0.5, 0}}, 20);
  for (std::uint64_t i = 0; i < 19; ++i) trend.Add(i, {12});
  EXPECT_FALSE(trend.Judge(stdout));
  trend.Add(19, {12});
  EXPECT_TRUE(trend.Judge(stdout));
}

TEST_F(TrendTest, TheTableHasAColumnForEachQuantity) {
  Trend trend({{"threads", 0, 0}, {"heap", 0, 0}}, 2);
  trend.Add(8, {12, 1234567890123.0});
  trend.Add(16, {13, 0});
  const std::string path = testing::TempDir() + "/trend_test.txt";
  trend.Write(path);
  std::ifstream file(path);
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  EXPECT_EQ(text, "cycle threads heap\n8 12 1234567890123\n16 13 0\n");
  std::remove(path.c_str());
}

TEST_F(TrendTest, ATableThatCannotBeWrittenIsAnError) {
  Trend trend({{"threads", 0, 0}}, 1);
  EXPECT_THROW(trend.Write("/nowhere/at/all"), std::runtime_error);
}

}  // namespace
}  // namespace corvalint::soak
