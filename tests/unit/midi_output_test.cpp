#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/midi_desk.h"
#include "winmidi/midi_destination.h"

// Opening and closing of destinations, and what is written to them.

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Bytes = FakeWinmm::Bytes;
using Calls = FakeWinmm::Calls;

class MidiOutput : public MidiDesk {
 protected:
  MidiOutput() {
    winmm.SetOutputs({"Drums", "Synth"});
    synth = AddDestination("Synth", 1, 9);
  }

  void OpenSynth() {
    ASSERT_EQ(Open(synth), kMidiNoError);
    Forget();
  }

  bool Send(const Bytes& bytes, std::int32_t id = 9) {
    return SendToMidiDestinations(registry.DestinationsWithId(id), bytes.data(),
                                  static_cast<std::uint32_t>(bytes.size()));
  }

  MidiDestinationPointer synth;
};

TEST_F(MidiOutput, OpeningAnnouncesAndThenPrints) {
  EXPECT_EQ(Open(synth), kMidiNoError);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutOpen(1)"));
  EXPECT_EQ(Printed(), "<destination added Synth 9 on>destination added Synth\n");
  EXPECT_TRUE(synth->IsOpen());
  EXPECT_TRUE(synth->available);
}

TEST_F(MidiOutput, OpensWithoutADelegateToo) {
  registry.delegate = nullptr;
  EXPECT_EQ(Open(synth), kMidiNoError);
  EXPECT_EQ(Printed(), "destination added Synth\n");
  winmm.TakeCalls();
}

TEST_F(MidiOutput, AFailedOpenLeavesItOffUnavailableAndSilent) {
  winmm.Fail("midiOutOpen", 4);
  EXPECT_EQ(Open(synth), 4u);
  EXPECT_TRUE(synth->off);
  EXPECT_FALSE(synth->available);
  EXPECT_EQ(synth->handle, nullptr);
  EXPECT_EQ(Printed(), "");
  EXPECT_EQ(Open(synth), kMidiNoError);
  EXPECT_TRUE(synth->available);
  Forget();
}

TEST_F(MidiOutput, ClosingAnIdleDestinationOnlyCloses) {
  OpenSynth();
  CloseMidiDestination(*synth);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutClose(Synth)"));
  EXPECT_EQ(synth->handle, nullptr);
  EXPECT_TRUE(synth->off);
  CloseMidiDestination(*synth);
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
  EXPECT_EQ(Printed(), "");
}

// A driver may take its time for a close: no sender waits for it, and none finds the handle.
TEST_F(MidiOutput, ANoteDuringTheCloseGoesNowhereAtOnce) {
  OpenSynth();
  winmm.WhenCalled("midiOutClose", [this] {
    std::thread sender([this] { EXPECT_TRUE(Send({0xFE})); });
    sender.join();
  });
  CloseMidiDestination(*synth);
  EXPECT_THAT(winmm.TakeCalls(),
              ElementsAre("midiOutClose(Synth)", "midiOutPrepareHeader(null, FE)"));
  EXPECT_EQ(Printed(), "MMSYSERR_INVALHANDLE\n");
  EXPECT_EQ(synth->handle, nullptr);
}

TEST_F(MidiOutput, OneThatWasClosedOpensAndSendsAgain) {
  OpenSynth();
  CloseMidiDestination(*synth);
  OpenSynth();
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_THAT(winmm.Sent("Synth"), ElementsAre(Bytes{0xFE}));
  EXPECT_EQ(Printed(), "");
  winmm.TakeCalls();
}

// Short messages included.
TEST_F(MidiOutput, EveryBlockGoesOutAsALongMessage) {
  OpenSynth();
  EXPECT_TRUE(Send({0xF8}));
  EXPECT_TRUE(Send({0x90, 0x3C, 0x7F}));
  EXPECT_EQ(winmm.TakeCalls(),
            (Calls{"midiOutPrepareHeader(Synth, F8)", "midiOutLongMsg(Synth, F8)",
                   "midiOutUnprepareHeader(Synth, F8)", "midiOutPrepareHeader(Synth, 90 3C 7F)",
                   "midiOutLongMsg(Synth, 90 3C 7F)", "midiOutUnprepareHeader(Synth, 90 3C 7F)"}));
  EXPECT_THAT(winmm.Sent("Synth"), ElementsAre(Bytes{0xF8}, Bytes{0x90, 0x3C, 0x7F}));
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(clock.TakeSleeps(), IsEmpty());
}

TEST_F(MidiOutput, LargeAndEmptyBlocksGoOutAsTheyAre) {
  OpenSynth();
  Bytes dump(131000, 0x11);
  dump.front() = 0xF0;
  dump.back() = 0xF7;
  EXPECT_TRUE(Send(dump));
  EXPECT_TRUE(Send({}));
  EXPECT_THAT(winmm.Sent("Synth"), ElementsAre(dump, Bytes{}));
  winmm.TakeCalls();
}

TEST_F(MidiOutput, WaitsAMillisecondAtATimeUntilTheDriverGivesTheBlockBack) {
  OpenSynth();
  winmm.Fail("midiOutUnprepareHeader", kMidiStillPlaying, 3);
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_THAT(
      winmm.TakeCalls(),
      ElementsAre("midiOutPrepareHeader(Synth, FE)", "midiOutLongMsg(Synth, FE)",
                  "midiOutUnprepareHeader(Synth, FE)", "midiOutUnprepareHeader(Synth, FE)",
                  "midiOutUnprepareHeader(Synth, FE)", "midiOutUnprepareHeader(Synth, FE)"));
  EXPECT_THAT(clock.TakeSleeps(), ElementsAre(1, 1, 1));
}

TEST_F(MidiOutput, AnyOtherAnswerEndsTheWait) {
  OpenSynth();
  winmm.Fail("midiOutUnprepareHeader", kMidiInvalidHandle);
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_EQ(winmm.Count("midiOutUnprepareHeader"), 1);
  EXPECT_EQ(Printed(), "");
  winmm.TakeCalls();
}

// The driver takes longer than anyone's patience with a closing device; this one is not closing.
TEST_F(MidiOutput, ALongDumpIsWaitedForAsLongAsItTakes) {
  OpenSynth();
  winmm.Fail("midiOutUnprepareHeader", kMidiStillPlaying, 3000);
  EXPECT_TRUE(Send({0xF0, 0xF7}));
  EXPECT_EQ(clock.TakeSleeps().size(), 3000u);
  winmm.TakeCalls();
}

TEST_F(MidiOutput, FailuresOfThePrepareAndTheSendArePrintedByName) {
  OpenSynth();
  const std::vector<std::pair<MidiResult, std::string>> texts{{11, "MMSYSERR_INVALPARAM\n"},
                                                              {5, "MMSYSERR_INVALHANDLE\n"},
                                                              {7, "MMSYSERR_NOMEM\n"},
                                                              {64, ""},
                                                              {65, ""},
                                                              {1, ""}};
  for (const auto& [code, text] : texts) {
    winmm.Fail("midiOutPrepareHeader", code);
    EXPECT_TRUE(Send({0xFE}));
    EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutPrepareHeader(Synth, FE)"));
    EXPECT_EQ(Printed(), text);
    winmm.Fail("midiOutLongMsg", code);
    EXPECT_TRUE(Send({0xFE}));
    EXPECT_THAT(winmm.TakeCalls(),
                ElementsAre("midiOutPrepareHeader(Synth, FE)", "midiOutLongMsg(Synth, FE)"));
    EXPECT_EQ(Printed(), text);
  }
  EXPECT_THAT(winmm.Sent("Synth"), IsEmpty());
}

TEST_F(MidiOutput, SendingToOneThatIsOffPrintsAndStillCountsAsAMatch) {
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_EQ(Printed(), "MMSYSERR_INVALHANDLE\n");
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutPrepareHeader(null, FE)"));
}

// The flag is not looked at, only the handle.
TEST_F(MidiOutput, TheOffFlagAloneDoesNotStopASend) {
  OpenSynth();
  synth->off = true;
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_THAT(winmm.Sent("Synth"), ElementsAre(Bytes{0xFE}));
  winmm.TakeCalls();
}

TEST_F(MidiOutput, SendsToEveryDestinationOfThatIdInOrderAndToNoOther) {
  OpenSynth();
  ASSERT_EQ(Open(AddDestination("Drums", 0, 9)), kMidiNoError);
  AddDestination("Other", 2, 8);
  Forget();
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_THAT(winmm.TakeCalls(),
              ElementsAre("midiOutPrepareHeader(Synth, FE)", "midiOutLongMsg(Synth, FE)",
                          "midiOutUnprepareHeader(Synth, FE)", "midiOutPrepareHeader(Drums, FE)",
                          "midiOutLongMsg(Drums, FE)", "midiOutUnprepareHeader(Drums, FE)"));
}

TEST_F(MidiOutput, AnUnknownIdIsNoMatch) {
  EXPECT_FALSE(Send({0xFE}, 10));
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
  EXPECT_EQ(Printed(), "");
}

// The driver keeps the block even after a reset: the sender gives up and leaves it the memory.
TEST_F(MidiOutput, ABlockThatTheDriverNeverGivesBackIsLeftToIt) {
  LogCapture log;
  OpenSynth();
  winmm.HoldBlocks("Synth", true);
  winmm.WhenCalled("midiOutUnprepareHeader", [this] { synth->closing = true; });
  EXPECT_TRUE(Send({0xF0, 0x55, 0xF7}));
  synth->closing = false;
  winmm.WhenCalled("midiOutUnprepareHeader", nullptr);
  EXPECT_EQ(clock.TakeSleeps(), std::vector<std::uint32_t>(999, 1));
  EXPECT_THAT(log.Lines(), ElementsAre("ERROR MIDI output keeps its data: Synth"));
  EXPECT_EQ(Printed(), "");
  // A message through a fresh block touches nothing of it.
  winmm.Fail("midiOutUnprepareHeader", kMidiNoError);
  EXPECT_TRUE(Send({0x11, 0x22, 0x33}));
  EXPECT_THAT(winmm.HeldBlocks("Synth"),
              ElementsAre(Bytes{0xF0, 0x55, 0xF7}, Bytes{0x11, 0x22, 0x33}));
  winmm.TakeCalls();
}

TEST_F(MidiOutput, ADestinationOnItsWayOutCountsAsClosed) {
  OpenSynth();
  synth->closing = true;
  EXPECT_TRUE(Send({0xFE}));
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutPrepareHeader(null, FE)"));
  EXPECT_EQ(Printed(), "MMSYSERR_INVALHANDLE\n");
}

}  // namespace
}  // namespace corvalint::test
