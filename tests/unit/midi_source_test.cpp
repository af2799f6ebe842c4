#include "winmidi/midi_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/midi_desk.h"
#include "winmidi/midi_scan.h"

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Calls = FakeWinmm::Calls;

class MidiSource : public MidiDesk {
 protected:
  MidiSource() {
    winmm.SetInputs({"Pads", "Keys"});
    keys = AddSource("Keys", 1, 7);
  }

  void OpenKeys() {
    ASSERT_EQ(Open(keys), kMidiNoError);
    Forget();
  }

  void ExpectOffAndUnavailable() {
    EXPECT_TRUE(keys->off);
    EXPECT_FALSE(keys->available);
    EXPECT_FALSE(keys->IsOpen());
    EXPECT_EQ(Printed(), "");
  }

  MidiSourcePointer keys;
};

const Calls kResetAndClose{"midiInReset(Keys)",
                           "midiInUnprepareHeader(Keys, 0)",
                           "midiInUnprepareHeader(Keys, 1)",
                           "midiInUnprepareHeader(Keys, 2)",
                           "midiInUnprepareHeader(Keys, 3)",
                           "midiInClose(Keys)"};

Calls operator+(Calls first, const Calls& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(MidiSource, HasFourBuffersOfItsOwnNumberedInOrder) {
  for (std::size_t number = 0; number < 4; ++number) {
    const MidiHeader& header = keys->buffers->headers[number];
    EXPECT_EQ(header.bufferLength, 65536u);
    EXPECT_EQ(header.user, number);
    EXPECT_EQ(header.flags, 0u);
    EXPECT_EQ(header.bytesRecorded, 0u);
    // Written to the last byte: the sanitizer sees a block that is too small or shared.
    for (std::size_t i = 0; i < 65536; ++i) header.data[i] = static_cast<char>(number);
  }
  for (std::size_t number = 0; number < 4; ++number) {
    const MidiHeader& header = keys->buffers->headers[number];
    EXPECT_EQ(std::string(header.data, 65536), std::string(65536, static_cast<char>(number)));
  }
}

TEST_F(MidiSource, OpeningQueuesItsBuffersStartsPrintsAndThenAnnounces) {
  EXPECT_EQ(Open(keys), kMidiNoError);
  EXPECT_EQ(winmm.TakeCalls(), (Calls{"midiInOpen(1)", "midiInPrepareHeader(Keys, 0)",
                                      "midiInAddBuffer(Keys, 0)", "midiInPrepareHeader(Keys, 1)",
                                      "midiInAddBuffer(Keys, 1)", "midiInPrepareHeader(Keys, 2)",
                                      "midiInAddBuffer(Keys, 2)", "midiInPrepareHeader(Keys, 3)",
                                      "midiInAddBuffer(Keys, 3)", "midiInStart(Keys)"}));
  EXPECT_EQ(Printed(), "source added Keys\n<source added Keys 7 on>");
  EXPECT_TRUE(keys->IsOpen());
  EXPECT_TRUE(keys->available);
}

TEST_F(MidiSource, OpensAndClosesWithoutADelegateToo) {
  registry.delegate = nullptr;
  EXPECT_EQ(Open(keys), kMidiNoError);
  EXPECT_EQ(Printed(), "source added Keys\n");
  EXPECT_TRUE(winmm.PlayShort("Keys", 0x403C90));
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7}));
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  Close(keys, true);
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  winmm.TakeCalls();
}

TEST_F(MidiSource, AFailedOpenLeavesItOffAndUnavailableWithoutAHandle) {
  winmm.Fail("midiInOpen", 4);
  EXPECT_EQ(Open(keys), 4u);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiInOpen(1)"));
  EXPECT_EQ(keys->handle, nullptr);
  ExpectOffAndUnavailable();
}

TEST_F(MidiSource, AFailureBeforeAnyBufferIsQueuedOnlyCloses) {
  winmm.Fail("midiInPrepareHeader", kMidiNoMemory);
  EXPECT_EQ(Open(keys), kMidiNoMemory);
  EXPECT_THAT(winmm.TakeCalls(),
              ElementsAre("midiInOpen(1)", "midiInPrepareHeader(Keys, 0)", "midiInClose(Keys)"));
  EXPECT_NE(keys->handle, nullptr);  // stale, and kept
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  ExpectOffAndUnavailable();
}

// The driver refuses the first close as long as it has buffers.
TEST_F(MidiSource, AFailureHalfwayClosesAgainAfterAReset) {
  winmm.Fail("midiInAddBuffer", kMidiInvalidParameter, 1, 2);
  EXPECT_EQ(Open(keys), kMidiInvalidParameter);
  EXPECT_EQ(winmm.TakeCalls(), (Calls{"midiInOpen(1)", "midiInPrepareHeader(Keys, 0)",
                                      "midiInAddBuffer(Keys, 0)", "midiInPrepareHeader(Keys, 1)",
                                      "midiInAddBuffer(Keys, 1)", "midiInPrepareHeader(Keys, 2)",
                                      "midiInAddBuffer(Keys, 2)", "midiInClose(Keys)"} +
                                kResetAndClose));
  EXPECT_NE(keys->handle, nullptr);
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  ExpectOffAndUnavailable();
}

TEST_F(MidiSource, AFailedStartClosesAndAnswersItsCode) {
  winmm.Fail("midiInStart", 99);
  EXPECT_EQ(Open(keys), 99u);
  EXPECT_EQ(winmm.Count("midiInAddBuffer"), 4);
  EXPECT_NE(keys->handle, nullptr);
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  ExpectOffAndUnavailable();
  winmm.TakeCalls();
}

TEST_F(MidiSource, OpensAfterAFailedOpen) {
  winmm.Fail("midiInStart", 99);
  Open(keys);
  Forget();
  EXPECT_EQ(Open(keys), kMidiNoError);
  EXPECT_TRUE(keys->IsOpen());
  EXPECT_TRUE(keys->available);
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7}));
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  Forget();
}

// The close went through at once, so nothing unprepared the header.
TEST_F(MidiSource, OpensAfterAFailureThatLeftAHeaderPrepared) {
  winmm.Fail("midiInAddBuffer", kMidiNoMemory);
  EXPECT_EQ(Open(keys), kMidiNoMemory);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiInOpen(1)", "midiInPrepareHeader(Keys, 0)",
                                             "midiInAddBuffer(Keys, 0)", "midiInClose(Keys)"));
  ExpectOffAndUnavailable();
  EXPECT_EQ(Open(keys), kMidiNoError);
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  Forget();
}

TEST_F(MidiSource, ClosingStopsResetsUnpreparesClosesAndThenAnnounces) {
  OpenKeys();
  Close(keys, true);
  EXPECT_EQ(winmm.TakeCalls(), Calls{"midiInStop(Keys)"} + kResetAndClose);
  EXPECT_EQ(Printed(), "<source removed Keys 7 off>");
  EXPECT_EQ(keys->handle, nullptr);
  EXPECT_TRUE(keys->off);
  EXPECT_TRUE(keys->available);
  EXPECT_THAT(clock.TakeSleeps(), IsEmpty());
}

TEST_F(MidiSource, ClosingAnnouncesNothingUnlessAsked) {
  OpenKeys();
  Close(keys, false);
  EXPECT_EQ(Printed(), "");
  EXPECT_TRUE(keys->off);
  winmm.TakeCalls();
}

TEST_F(MidiSource, ClosingAClosedOrUnavailableSourceDoesNothing) {
  Close(keys, true);
  winmm.Fail("midiInStart", 99);
  Open(keys);
  Forget();
  Close(keys, true);
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
  EXPECT_EQ(Printed(), "");
}

// A system-exclusive message that has no end yet comes back with its bytes when the device is
// reset. A buffer queued then would keep the driver from closing.
TEST_F(MidiSource, ABufferThatTheResetGivesBackWithBytesIsHandedOnAndNotQueuedAgain) {
  OpenKeys();
  winmm.PlayUnfinished("Keys", {0xF0, 0x01, 0x02});
  clock.SetTicks(50);
  Close(keys, true);
  EXPECT_EQ(winmm.TakeCalls(), Calls{"midiInStop(Keys)"} + kResetAndClose);
  EXPECT_THAT(delegate.TakeReceived(), ElementsAre("Keys 7: F0 01 02 at 5000", "Keys 7:  at 6000",
                                                   "Keys 7:  at 7000", "Keys 7:  at 8000"));
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
}

TEST_F(MidiSource, ACloseThatTheDriverRefusesForAWhileIsTriedAgain) {
  OpenKeys();
  winmm.Fail("midiInClose", kMidiStillPlaying, 3);
  Close(keys, false);
  EXPECT_EQ(winmm.TakeCalls(), Calls{"midiInStop(Keys)"} + kResetAndClose + kResetAndClose +
                                   kResetAndClose + kResetAndClose);
  EXPECT_THAT(clock.TakeSleeps(), ElementsAre(10, 10, 10));
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  EXPECT_EQ(keys->handle, nullptr);
}

TEST_F(MidiSource, ACloseThatFailsOtherwiseIsNotTriedAgain) {
  LogCapture log;
  OpenKeys();
  winmm.Fail("midiInClose", kMidiNoMemory);
  Close(keys, false);
  EXPECT_EQ(winmm.Count("midiInClose"), 1);
  EXPECT_THAT(log.Lines(), ElementsAre("ERROR MIDI input could not be closed: Keys"));
  EXPECT_EQ(keys->handle, nullptr);
  winmm.TakeCalls();
}

// What a driver keeps is never freed: it may still write into it and call back.
TEST_F(MidiSource, ADriverThatNeverClosesKeepsTheRecordAndItsBuffers) {
  LogCapture log;
  OpenKeys();
  const std::vector<MidiHeader*> queued = winmm.Queued("Keys");
  winmm.KeepBuffersForever("Keys");
  Close(keys, false);
  EXPECT_EQ(winmm.Count("midiInClose"), 51);
  EXPECT_EQ(clock.TakeSleeps(), std::vector<std::uint32_t>(50, 10));
  EXPECT_THAT(log.Lines(), ElementsAre("ERROR MIDI input could not be closed: Keys"));
  EXPECT_EQ(keys->handle, nullptr);
  EXPECT_TRUE(keys->off);
  keys.reset();
  winmm.SetInputs({});
  ScanMidiDevices(registry);
  EXPECT_EQ(registry.SourceCount(), 0);
  Forget();

  clock.SetTicks(0);
  MidiHeader& late = *queued.front();
  late.data[65535] = 1;
  late.data[0] = '\xF7';
  late.bytesRecorded = 1;
  EXPECT_TRUE(
      winmm.CallBack("Keys", kMidiInLongData, reinterpret_cast<std::uintptr_t>(queued.front())));
  EXPECT_THAT(delegate.TakeReceived(), ElementsAre("Keys 7: F7 at 0"));
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

TEST_F(MidiSource, AnOpenThatGotStuckKeepsTheRecordAndItsBuffersToo) {
  LogCapture log;
  winmm.Fail("midiInStart", kMidiNoMemory);
  winmm.KeepBuffersForever("Keys");
  std::vector<MidiHeader*> queued;
  winmm.WhenCalled("midiInStart", [&] { queued = winmm.Queued("Keys"); });
  EXPECT_EQ(Open(keys), kMidiNoMemory);
  EXPECT_THAT(log.Lines(), ElementsAre("ERROR MIDI input could not be closed: Keys"));
  keys.reset();
  winmm.SetInputs({});
  ScanMidiDevices(registry);
  EXPECT_EQ(registry.SourceCount(), 0);
  Forget();

  clock.SetTicks(0);
  ASSERT_EQ(queued.size(), 4u);
  queued.front()->data[0] = '\xF7';
  queued.front()->bytesRecorded = 1;
  EXPECT_TRUE(
      winmm.CallBack("Keys", kMidiInLongData, reinterpret_cast<std::uintptr_t>(queued.front())));
  EXPECT_THAT(delegate.TakeReceived(), ElementsAre("Keys 7: F7 at 0"));
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

TEST_F(MidiSource, ASourceThatCouldNotBeClosedOpensAgainWithFreshBuffers) {
  LogCapture log;
  OpenKeys();
  void* const oldHandle = keys->handle;
  const std::vector<MidiHeader*> old = winmm.Queued("Keys");
  winmm.KeepBuffersForever("Keys");
  Close(keys, false);
  ASSERT_EQ(Open(keys), kMidiNoError);
  for (const MidiHeader* header : winmm.Queued("Keys")) {
    EXPECT_EQ(std::count(old.begin(), old.end(), header), 0);
  }
  Forget();
  // A buffer of the first time comes back late: it belongs to no open device any more.
  old.front()->bytesRecorded = 1;
  MidiInputCallback(oldHandle, kMidiInLongData, reinterpret_cast<std::uintptr_t>(keys.get()),
                    reinterpret_cast<std::uintptr_t>(old.front()), 0);
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

}  // namespace
}  // namespace corvalint::test
