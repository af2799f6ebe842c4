// Messages per second at the published ports, which the console host's watch counts by itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/documents.h"
#include "host/exit_codes.h"
#include "host/live_screen.h"
#include "host/port_counts.h"
#include "unit/support/host_fake.h"

namespace corvalint::host {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// What the desktop's MIDI inputs do, each known by its number.
struct FakeInputs {
  std::vector<MidiInput> inputs;
  std::map<size_t, uint64_t> messages;
  std::map<size_t, uint32_t> refusals;
  std::vector<std::string> opened;
  int open = 0;
  int remade = 0;  // how often all ports went and came again
  int shifts = 0;  // so many opens find that the numbers have moved
};

class FakeEar : public InputEar {
 public:
  FakeEar(FakeInputs& desktop, size_t number) : inputs(desktop), place(number) { ++inputs.open; }
  ~FakeEar() override { --inputs.open; }
  uint32_t Refused() const override {
    return inputs.refusals.contains(place) ? inputs.refusals.at(place) : 0;
  }
  bool Alive() const override { return made == inputs.remade; }
  uint64_t Messages() const override { return inputs.messages[place]; }

 private:
  FakeInputs& inputs;
  size_t place;
  int made = inputs.remade;
};

void UseInputs(System& system, FakeInputs& desktop) {
  system.listInputs = [&desktop] { return desktop.inputs; };
  system.openInput = [&desktop](size_t number,
                                const MidiInput& expected) -> std::unique_ptr<InputEar> {
    if (desktop.shifts > 0) {
      --desktop.shifts;
      return nullptr;
    }
    desktop.opened.push_back(expected.name);
    return std::make_unique<FakeEar>(desktop, number);
  };
}

class PortCountsTest : public ::testing::Test {
 protected:
  static constexpr int kLooksToOpen = PortCounts::kLooksPerList * (PortCounts::kListsToSettle - 1);
  static constexpr int kLooksToClose = PortCounts::kLooksPerList;

  PortCountsTest() { UseInputs(system, desktop); }

  void Look(int times, int64_t second) {
    for (int look = 0; look < times; ++look) counts.Look(sources, second);
  }

  // What is told, each as "second text".
  std::vector<std::string> News(bool toTheEnd = false) {
    std::vector<std::string> texts;
    for (const PortNews& news : counts.TakeNews(toTheEnd)) {
      texts.push_back(std::to_string(news.second) + " " + NewsText(news));
    }
    return texts;
  }

  FakeInputs desktop{{{"Keys", "Keys"}, {"App", "App"}}, {}, {}, {}};
  std::vector<Endpoint> sources = {{5, "Keys", "Keys", true, true}};
  System system;
  PortCounts counts{system};
};

TEST_F(PortCountsTest, OpensWhatTheBridgeDoesNotListAndNothingElse) {
  Look(kLooksToOpen, 100);
  EXPECT_THAT(desktop.opened, IsEmpty());
  EXPECT_THAT(counts.Rates(100), IsEmpty());
  Look(60, 100);
  EXPECT_THAT(desktop.opened, ElementsAre("App"));
  EXPECT_EQ(desktop.open, 1);
  EXPECT_THAT(counts.Rates(100), SizeIs(1));
}

TEST_F(PortCountsTest, LeavesAKeyboardAloneThatTheNextScanFinds) {
  desktop.inputs = {{"Keys", "Keys"}, {"New", "New"}};
  Look(kLooksToOpen, 100);
  sources.push_back({6, "New", "New", false, true});
  Look(60, 100);
  EXPECT_THAT(desktop.opened, IsEmpty());
}

TEST_F(PortCountsTest, TellsEachSecondThatHadMessagesOnceItIsOver) {
  Look(kLooksToOpen + 1, 100);
  desktop.messages[1] = 3;
  Look(1, 101);
  desktop.messages[1] = 5;
  Look(1, 101);
  EXPECT_THAT(News(), IsEmpty());
  Look(1, 102);
  EXPECT_THAT(News(), ElementsAre("101 5 messages at \"App\""));
  Look(1, 103);
  EXPECT_THAT(News(), IsEmpty());
  desktop.messages[1] = 6;
  Look(1, 104);
  EXPECT_THAT(News(true), ElementsAre("104 1 message at \"App\""));
  EXPECT_THAT(News(true), IsEmpty());
  std::vector<size_t> perSecond = counts.Rates(105).at(0).perSecond;
  EXPECT_EQ(std::vector<size_t>(perSecond.end() - 4, perSecond.end()),
            (std::vector<size_t>{5, 0, 0, 1}));
}

TEST_F(PortCountsTest, ClosesWhatVanishesAndLosesNoCount) {
  Look(kLooksToOpen + 1, 100);
  desktop.messages[1] = 2;
  desktop.inputs.pop_back();
  Look(kLooksToClose, 101);
  EXPECT_EQ(desktop.open, 0);
  EXPECT_THAT(counts.Rates(101), IsEmpty());
  EXPECT_THAT(News(), ElementsAre("101 2 messages at \"App\""));
  // One that the bridge begins to list is closed as well.
  desktop.inputs.push_back({"App", "App"});
  Look(60, 102);
  EXPECT_EQ(desktop.open, 1);
  sources.push_back({7, "App", "App", false, true});
  Look(kLooksToClose, 103);
  EXPECT_EQ(desktop.open, 0);
}

TEST_F(PortCountsTest, ClosesAllAtTheEnd) {
  {
    PortCounts other(system);
    for (int look = 0; look < 60; ++look) other.Look(sources, 100);
    EXPECT_EQ(desktop.open, 1);
  }
  EXPECT_EQ(desktop.open, 0);
}

TEST_F(PortCountsTest, SaysOnceWhatCannotBeOpened) {
  desktop.refusals[1] = 4;
  Look(200, 100);
  EXPECT_THAT(News(), ElementsAre("100 messages at \"App\" cannot be counted: its input cannot be "
                                  "opened (result 4)"));
  EXPECT_THAT(desktop.opened, SizeIs(1));
  EXPECT_EQ(desktop.open, 0);
  ASSERT_THAT(counts.Rates(101), SizeIs(1));
  EXPECT_FALSE(counts.Rates(101).at(0).counted);
}

TEST_F(PortCountsTest, InputsOfOneNameCountTogetherAndAreOpenedAgainWhenOneGoes) {
  desktop.inputs.push_back({"App", "App"});
  Look(kLooksToOpen + 1, 100);
  EXPECT_EQ(desktop.open, 2);
  desktop.messages = {{1, 2}, {2, 3}};
  Look(1, 100);
  EXPECT_THAT(News(true), ElementsAre("100 5 messages at \"App\""));
  desktop.inputs.pop_back();
  Look(60, 101);
  EXPECT_EQ(desktop.open, 1);
}

TEST_F(PortCountsTest, OpensAPortAgainThatWentAndCameBetweenTwoLists) {
  Look(kLooksToOpen + 1, 100);
  ++desktop.remade;
  Look(60, 101);
  EXPECT_THAT(desktop.opened, ElementsAre("App", "App"));
  EXPECT_EQ(desktop.open, 1);
}

TEST_F(PortCountsTest, TriesAgainWhenTheNumbersHaveMovedMeanwhile) {
  desktop.shifts = 2;
  Look(kLooksToOpen + 1, 100);
  EXPECT_EQ(desktop.open, 0);
  Look(60, 100);
  EXPECT_EQ(desktop.open, 1);
  EXPECT_THAT(News(), IsEmpty());
}

TEST(MidiDocumentTest, TellsASecondOrWhyThereIsNone) {
  EXPECT_EQ(MidiDocument({"App", 100, 12, 0}, "T"),
            R"({"kind":"midi","time":"T","name":"App","messages":12})");
  EXPECT_EQ(MidiDocument({"App", 100, 0, 4}, "T"),
            R"({"kind":"midi","time":"T","name":"App","messages":null,"result":4})");
}

LiveState StateWithPorts() {
  LiveState state;
  state.time = "18:30:05";
  state.ports = {{"App of the iPad", true, std::vector<size_t>(60, 0)}, {"Busy", false, {}}};
  state.ports[0].perSecond[57] = 24;
  state.ports[0].perSecond[59] = 12;
  return state;
}

TEST(PortRowsTest, ShowTheLastSecondAndThoseBefore) {
  std::vector<std::string> lines = RenderLive(StateWithPorts(), 80, 24);
  lines.erase(lines.begin(), lines.begin() + 2);
  EXPECT_THAT(lines, ElementsAre("MIDI messages per second",
                                 "   12 " + std::string(17, ' ') +
                                     "\xE2\x96\x88 \xE2\x96\x84 App of the iPad",
                                 "    - " + std::string(20, ' ') + " Busy", " - cannot be opened",
                                 "Sources: none", "Destinations: none", "Ctrl-C ends"));
}

TEST(PortRowsTest, FitTwentyColumns) {
  std::vector<std::string> lines = RenderLive(StateWithPorts(), 20, 24);
  lines.erase(lines.begin(), lines.begin() + 2);
  EXPECT_THAT(lines, ElementsAre("MIDI per second", "   12    \xE2\x96\x88 \xE2\x96\x84 App of~",
                                 "    -        Busy", " - cannot be opened", "Sources: none",
                                 "Destinations: none", "Ctrl-C ends"));
  LiveState state = StateWithPorts();
  state.ports[0].perSecond[59] = 1234567;
  for (int columns = 0; columns < 60; ++columns) {
    for (const std::string& line : RenderLive(state, columns, 24)) {
      EXPECT_LE(DisplayWidth(line), columns) << line;
    }
  }
}

TEST_F(HostTest, WatchTellsMessagesInLinesAndInDocuments) {
  FakeInputs desktop{{{"Keys", "Keys"}, {"App", "App"}}, {}, {}, {}};
  UseInputs(system, desktop);
  // The numbers of inputs, not of sources: the bridge lists "Keys" only.
  onSleep = [&] { desktop.messages[1] = static_cast<uint64_t>(sleeps > 40 ? 7 : 0); };
  sleepsUntilInterrupt = 50;
  std::string text = Say("watch", kExitDone);
  EXPECT_THAT(text, EndsWith("  7 messages at \"App\"\n"));
  EXPECT_EQ(desktop.open, 0);
  desktop.messages.clear();
  sleeps = 0;
  printed.clear();
  Person writer(wrapper, system, MakeOutput(true));
  EXPECT_EQ(writer.Do("watch"), kExitDone);
  EXPECT_THAT(printed, HasSubstr(R"({"kind":"midi","time":"2)"));
  EXPECT_THAT(printed, EndsWith(R"(","name":"App","messages":7})"
                                "\n"));
  EXPECT_EQ(desktop.open, 0);
}

}  // namespace
}  // namespace corvalint::host
