// The screen of the console host's watch, and its other ways to show what changes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "host/exit_codes.h"
#include "host/live_screen.h"
#include "host/watch.h"
#include "unit/support/host_fake.h"

namespace corvalint::host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

LiveState FullState() {
  LiveState state;
  state.time = "18:30:05";
  state.devices = 1;
  state.identifiers = {"00008030-001A2B3C4D5E6F"};
  state.announced = {"source \"App\""};
  state.listing.sources = {{5, "Keys", "Keys", true, true},
                           {6, "Long", "A name of thirty-one characters", false, true}};
  state.listing.destinations = {{7, "Synth", "Synth", false, false}};
  state.changes = {0, 1, 4};
  return state;
}

TEST(LiveScreenTest, ShowsEverythingAtOnce) {
  EXPECT_THAT(
      RenderLive(FullState(), 80, 24),
      ElementsAre("1 device   18:30:05", "list changes in a minute: 5  \xE2\x96\x82\xE2\x96\x88",
                  " 00008030-001A2B3C4D5E6F", "From apps", " source \"App\"", "Sources",
                  " on  Keys", " off A name of thirty-one characters", "Destinations", " !   Synth",
                  "Ctrl-C ends"));
}

TEST(LiveScreenTest, IsReadableAtTwentyColumns) {
  EXPECT_THAT(RenderLive(FullState(), 20, 24),
              ElementsAre("1 device", "changes 5  \xE2\x96\x82\xE2\x96\x88", " 00008030-001A2B3C4~",
                          "From apps", " source \"App\"", "Sources", " on  Keys",
                          " off A name of thir~", "Destinations", " !   Synth", "Ctrl-C ends"));
}

TEST(LiveScreenTest, CountsWhatDoesNotFit) {
  EXPECT_THAT(RenderLive(FullState(), 80, 4),
              ElementsAre(StartsWith("1 device"), StartsWith("list changes"),
                          " 00008030-001A2B3C4D5E6F", "8 more lines"));
  EXPECT_THAT(RenderLive(FullState(), 80, 1), ElementsAre("11 more lines"));
  EXPECT_THAT(RenderLive(FullState(), 80, 0), IsEmpty());
  for (int columns = 0; columns < 50; ++columns) {
    for (const std::string& line : RenderLive(FullState(), columns, 24)) {
      EXPECT_LE(DisplayWidth(line), columns) << line;
    }
  }
}

TEST(LiveScreenTest, WidthIsThatOfATerminal) {
  EXPECT_EQ(DisplayWidth("Caf\xC3\xA9"), 4);
  EXPECT_EQ(DisplayWidth("Cafe\xCC\x81"), 4);              // a combining accent
  EXPECT_EQ(DisplayWidth("\xE9\x8D\xB5\xE7\x9B\xA4"), 4);  // two ideographs
  EXPECT_EQ(DisplayWidth("\xF0\x9F\x8E\xB9"), 2);          // a keyboard
  EXPECT_EQ(DisplayWidth("\xC3"), 1);                      // no UTF-8
  EXPECT_EQ(CutToWidth("\xE9\x8D\xB5\xE7\x9B\xA4", 4), "\xE9\x8D\xB5\xE7\x9B\xA4");
  EXPECT_EQ(CutToWidth("\xE9\x8D\xB5\xE7\x9B\xA4", 3), "\xE9\x8D\xB5~");
  EXPECT_EQ(CutToWidth("\xE9\x8D\xB5\xE7\x9B\xA4", 2), "~");
  EXPECT_EQ(CutToWidth("abc", 0), "");
}

TEST(LiveScreenTest, TheHighestValueOfASparklineHasTheWholeHeight) {
  EXPECT_EQ(Sparkline({1, 8, 800, 0}, 4), "\xE2\x96\x81\xE2\x96\x81\xE2\x96\x88 ");
  EXPECT_EQ(Sparkline({9, 2, 2}, 2), "\xE2\x96\x88\xE2\x96\x88");
  EXPECT_EQ(Sparkline({0, 0}, 9), "  ");
  EXPECT_EQ(Sparkline({3}, 0), "");
}

TEST(SecondHistoryTest, CountsBySecondForAMinute) {
  SecondHistory history;
  history.Add(1000, 2);
  history.Add(1000, 1);
  history.Add(1002, 5);
  std::vector<size_t> values = history.PerSecond(1003);
  ASSERT_EQ(values.size(), 60u);
  EXPECT_EQ(values[56], 3u);
  EXPECT_EQ(values[57], 0u);
  EXPECT_EQ(values[58], 5u);
  EXPECT_EQ(values[59], 0u);
  EXPECT_EQ(history.PerSecond(1061)[0], 5u);
  history.Add(1062, 0);
  EXPECT_THAT(history.PerSecond(1062), Not(Contains(testing::Gt(0u))));
  // The clock was set back.
  history.Add(10, 1);
  EXPECT_EQ(history.PerSecond(10).back(), 1u);
}

// Keeps what is drawn.
class FakeScreen : public Screen {
 public:
  explicit FakeScreen(std::vector<std::vector<std::string>>& drawn) : frames(drawn) {}
  int Columns() override { return 60; }
  int Rows() override { return 12; }
  void Draw(const std::vector<std::string>& lines) override { frames.push_back(lines); }

 private:
  std::vector<std::vector<std::string>>& frames;
};

TEST_F(HostTest, WatchDrawsOnAScreenWhereThereIsOne) {
  std::vector<std::vector<std::string>> frames;
  system.openScreen = [&] { return std::make_unique<FakeScreen>(frames); };
  system.takeLibraryLines = [this]() -> std::string {
    if (sleeps == 1) return "falsefalseDevice connected: ip";
    return sleeps == 2 ? "ad\nreceiving add_remote_source: App || 3\n" : "";
  };
  sleepsUntilInterrupt = 2;
  onSleep = [] {
    fakeClients = 1;
    fakeSides[1].clear();
  };
  EXPECT_EQ(Say("watch", kExitDone), "");
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_THAT(frames[0][0], StartsWith("0 devices   "));
  EXPECT_THAT(frames[0], Contains(" off Broken"));
  EXPECT_THAT(frames[1][1], StartsWith("list changes in a minute: 2 "));
  EXPECT_THAT(frames[1], Contains("Destinations: none"));
  EXPECT_THAT(frames[2][0], StartsWith("1 device   "));
  EXPECT_THAT(frames[2], Contains(" ipad"));
  EXPECT_THAT(frames[2], Contains(" source \"App\""));
}

TEST_F(HostTest, WatchWritesLinesWhereNoScreenCanBeHad) {
  system.openScreen = [] { return nullptr; };
  EXPECT_THAT(Say("watch 0", kExitDone), EndsWith("  0 devices connected\n"));
}

TEST(ConsoleReaderTest, KeepsNoMoreThanALineNeeds) {
  ConsoleReader reader;
  for (int count = 0; count < 5000; ++count) reader.Take("true");
  reader.Take("Device connected: ipad\nDevice disconnected: ipod\n");
  EXPECT_THAT(reader.Devices(), ElementsAre("ipad"));
  reader.Take("Device disconnected: ipad\r\n");
  EXPECT_THAT(reader.Devices(), IsEmpty());
}

}  // namespace
}  // namespace corvalint::host
