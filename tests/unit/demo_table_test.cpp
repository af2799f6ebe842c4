// The table at the end of the demo, and the sentence under it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "demo/table.h"
#include "harness/latencies.h"

namespace corvalint::demo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const harness::Bytes kNote{0x90, 0x3C, 0x64};
const harness::Bytes kProgram{0xC0, 0x05};

Row NamedRow(const std::string& way, const std::string& pace) {
  Row row;
  row.way = way;
  row.pace = pace;
  return row;
}

TEST(DemoTable, RowCountsMessagesBytesAndTimes) {
  Row row;
  EXPECT_EQ(row.Add({{1000, kNote}, {2000, kProgram}}, {{1700, kNote}, {2900, kProgram}}), "");
  EXPECT_EQ(row.sent, 2u);
  EXPECT_EQ(row.received, 2u);
  EXPECT_EQ(row.bytes, 5u);
  EXPECT_THAT(row.times, ElementsAre(700, 900));
  EXPECT_TRUE(row.Perfect());
}

TEST(DemoTable, RowGrowsOverPerformances) {
  Row row;
  row.Add({{0, kNote}}, {{5, kNote}});
  const std::string difference = row.Add({{0, kNote}, {1, kProgram}}, {{7, kProgram}});
  EXPECT_EQ(difference, "message 1: sent 90 3c 64, received c0 05");
  EXPECT_EQ(row.sent, 3u);
  EXPECT_EQ(row.received, 2u);
  EXPECT_EQ(row.lost, 1u);
  EXPECT_THAT(row.times, ElementsAre(5, 6));
  EXPECT_FALSE(row.Perfect());
}

TEST(DemoTable, AMessageThatNobodySentIsNotPerfect) {
  Row row;
  row.Add({{0, kNote}}, {{5, kNote}, {6, kNote}});
  EXPECT_EQ(row.extra, 1u);
  EXPECT_FALSE(row.Perfect());
}

TEST(DemoTable, PercentilesAreValuesThatSoManyDoNotExceed) {
  std::vector<std::int64_t> values;
  for (std::int64_t i = 200; i >= 1; --i) values.push_back(i);
  EXPECT_EQ(harness::Percentile(values, 50), 100);
  EXPECT_EQ(harness::Percentile(values, 99), 198);
  EXPECT_EQ(harness::Percentile(values, 100), 200);
  EXPECT_EQ(harness::Percentile({42}, 99), 42);
  EXPECT_EQ(harness::Percentile({3, 1}, 50), 1);
  EXPECT_EQ(harness::Percentile({}, 50), 0);
}

TEST(DemoTable, AlignsTextLeftAndNumbersRight) {
  Row first = NamedRow("iPad > Synthesizer", "own tempo");
  first.sent = 1234;
  first.received = 1230;
  first.lost = 4;
  first.bytes = 3690;
  first.times = {1499, 1'500'500};
  Row second = NamedRow("Keys > iPad", "full speed");
  second.changed = 7;
  second.reordered = 12;
  EXPECT_EQ(
      FormatTable({first, second}),
      "way                 pace         sent  received  lost  changed  reordered  bytes  p50 us"
      "  p99 us\n"
      "iPad > Synthesizer  own tempo   1,234     1,230     4        0          0  3,690       1"
      "   1,501\n"
      "Keys > iPad         full speed      0         0     0        7         12      0       -"
      "       -\n");
}

TEST(DemoTable, GroupsThousands) {
  EXPECT_EQ(Grouped(0), "0");
  EXPECT_EQ(Grouped(999), "999");
  EXPECT_EQ(Grouped(1000), "1,000");
  EXPECT_EQ(Grouped(1234567), "1,234,567");
  EXPECT_EQ(Grouped(std::numeric_limits<std::uint64_t>::max()), "18,446,744,073,709,551,615");
}

TEST(DemoTable, PraisesOnlyWhatIsPerfect) {
  Row good;
  good.sent = 1500;
  Verdict verdict = Judge({good, good});
  EXPECT_TRUE(verdict.good);
  EXPECT_EQ(verdict.text, "All 3,000 messages arrived, unchanged and in order.");

  for (std::size_t Row::*harm : {&Row::lost, &Row::changed, &Row::reordered, &Row::extra}) {
    Row bad = good;
    bad.*harm = 1;
    EXPECT_FALSE(Judge({good, bad}).good);
  }
  Row bad = good;
  bad.lost = 2;
  bad.extra = 1;
  verdict = Judge({bad, good});
  EXPECT_EQ(verdict.text,
            "Of 3,000 messages not all arrived as sent: 2 lost, 1 received that nobody sent.");
}

TEST(DemoTable, SilenceIsNoSuccess) {
  EXPECT_FALSE(Judge({}).good);
  EXPECT_FALSE(Judge({Row()}).good);
  EXPECT_THAT(Judge({}).text, HasSubstr("Nothing"));
}

}  // namespace
}  // namespace corvalint::demo
