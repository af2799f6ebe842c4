#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/midi_desk.h"
#include "winmidi/midi_source.h"

// What an open source does with the MIDI that its driver calls back with.

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MidiInput : public MidiDesk {
 protected:
  MidiInput() {
    winmm.SetInputs({"Keys"});
    keys = AddSource("Keys", 0, -7);
    EXPECT_EQ(Open(keys), kMidiNoError);
    Forget();
    clock.SetTicks(50);
  }

  MidiSourcePointer keys;
};

TEST(ShortMessageLength, FollowsFromTheStatusByte) {
  for (int status = 0; status < 0x100; ++status) {
    std::int32_t expected = 1;
    if (status < 0x80) {
      expected = 0;
    } else if (status < 0xF0) {
      expected = (status & 0xF0) == 0xC0 || (status & 0xF0) == 0xD0 ? 2 : 3;
    } else if (status == 0xF1 || status == 0xF3) {
      expected = 2;
    } else if (status == 0xF2) {
      expected = 3;
    }
    EXPECT_EQ(ShortMessageLength(static_cast<std::uint8_t>(status)), expected) << status;
  }
}

TEST_F(MidiInput, ShortMessagesAreHandedOnInMemoryOrderWithTheirLengthAndTime) {
  const std::vector<std::pair<std::uint32_t, std::string>> messages{
      {0x00643C80, "80 3C 64"}, {0x00643C9F, "9F 3C 64"}, {0x00402AB0, "B0 2A 40"},
      {0x00FF05C3, "C3 05"},    {0x00FF7FD0, "D0 7F"},    {0x004000E1, "E1 00 40"},
      {0x00FFFFF0, "F0"},       {0x00FF35F1, "F1 35"},    {0x000102F2, "F2 02 01"},
      {0x00FF07F3, "F3 07"},    {0x00FFFFF6, "F6"},       {0xFFFFFFF8, "F8"},
      {0x000000FF, "FF"}};
  for (const auto& [packed, bytes] : messages) {
    clock.SetTicks(50);
    EXPECT_TRUE(winmm.PlayShort("Keys", packed));
    EXPECT_THAT(delegate.TakeReceived(), ElementsAre("Keys -7: " + bytes + " at 5000"));
  }
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

TEST_F(MidiInput, AShortMessageWithoutAStatusByteIsIgnored) {
  EXPECT_TRUE(winmm.PlayShort("Keys", 0x00649000));
  EXPECT_TRUE(winmm.PlayShort("Keys", 0x0064907F));
  EXPECT_THAT(delegate.TakeReceived(), IsEmpty());
}

// The counter's product wraps, and the time stamp's 64 bits are those of the signed quotient.
TEST_F(MidiInput, TimeStampsAreTheBitsOfTheWrappedHostTime) {
  clock.SetTicks(10'000'000'000);
  EXPECT_TRUE(winmm.PlayShort("Keys", 0xF8));
  EXPECT_THAT(delegate.TakeReceived(),
              ElementsAre("Keys -7: F8 at " +
                          std::to_string(static_cast<std::uint64_t>(std::int64_t{-844674407370}))));
}

TEST_F(MidiInput, LongMessagesAreHandedOnAndTheirBufferIsQueuedAgain) {
  const std::vector<MidiHeader*> before = winmm.Queued("Keys");
  ASSERT_EQ(before.size(), 4u);
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0x7E, 0xF7}));
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7}, kMidiInLongError));
  EXPECT_THAT(delegate.TakeReceived(),
              ElementsAre("Keys -7: F0 7E F7 at 5000", "Keys -7: F0 F7 at 6000"));
  EXPECT_THAT(winmm.TakeCalls(),
              ElementsAre("midiInAddBuffer(Keys, 0)", "midiInAddBuffer(Keys, 1)"));
  EXPECT_THAT(winmm.Queued("Keys"), ElementsAre(before[2], before[3], before[0], before[1]));
}

TEST_F(MidiInput, ADumpLongerThanAllBuffersTogetherArrivesWhole) {
  constexpr int kBlocks = 9;
  std::vector<std::string> expected;
  for (int block = 0; block < kBlocks; ++block) {
    EXPECT_TRUE(winmm.PlayLong("Keys", FakeWinmm::Bytes(65536, static_cast<std::uint8_t>(block))));
    std::string text = "Keys -7:";
    for (int i = 0; i < 65536; ++i) text += " 0" + std::to_string(block);
    expected.push_back(text + " at " + std::to_string(5000 + 1000 * block));
  }
  // Compared as a whole: a difference would be shown with megabytes of text.
  EXPECT_TRUE(delegate.TakeReceived() == expected);
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  winmm.TakeCalls();
}

// The bytes are the delegate's for the time of the call only; afterwards the driver owns them.
TEST_F(MidiInput, ABufferIsQueuedAgainAfterItsBytesWereHandedOn) {
  delegate.WhenReceiving([this] { EXPECT_EQ(winmm.Queued("Keys").size(), 3u); });
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7}));
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  winmm.TakeCalls();
}

TEST_F(MidiInput, AnEmptyBufferIsHandedOnAndNotQueuedAgain) {
  EXPECT_TRUE(winmm.PlayLong("Keys", {}));
  EXPECT_THAT(delegate.TakeReceived(), ElementsAre("Keys -7:  at 5000"));
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
  EXPECT_EQ(winmm.Queued("Keys").size(), 3u);
}

TEST_F(MidiInput, WithoutADelegateBuffersAreStillQueuedAgain) {
  registry.delegate = nullptr;
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7}));
  EXPECT_TRUE(winmm.PlayShort("Keys", 0xF8));
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiInAddBuffer(Keys, 0)"));
}

TEST_F(MidiInput, OtherMessagesAreIgnored) {
  for (const std::uint32_t message : {kMidiInError, 0x3C1u, 0x3C2u, 0x3CCu, 0u}) {
    EXPECT_TRUE(winmm.CallBack("Keys", message, 0x643C90));
  }
  EXPECT_THAT(delegate.TakeReceived(), IsEmpty());
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

// The registry's lock keeps a close and the queuing apart, and is held for nothing else: a close
// that waits for this callback would wait for ever.
TEST_F(MidiInput, TheRegistrysLockIsHeldForTheQueuingOnly) {
  delegate.WhenReceiving([this] { EXPECT_EQ(registry.bufferQueueLock.HoldsOfThisThread(), 0u); });
  std::vector<std::uint32_t> holds;
  winmm.WhenCalled("midiInAddBuffer",
                   [&] { holds.push_back(registry.bufferQueueLock.HoldsOfThisThread()); });
  for (const char* function : {"midiInStop", "midiInReset", "midiInClose"}) {
    winmm.WhenCalled(function,
                     [this] { EXPECT_EQ(registry.bufferQueueLock.HoldsOfThisThread(), 0u); });
  }
  EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7}));
  EXPECT_THAT(holds, ElementsAre(1u));
  Close(keys, false);
  EXPECT_EQ(registry.bufferQueueLock.HoldsOfThisThread(), 0u);
  winmm.TakeCalls();
}

// winmm's frames above the callback know no exceptions.
TEST_F(MidiInput, AFailureOfTheDelegateIsLoggedAndLosesNoBuffer) {
  LogCapture log;
  delegate.WhenReceiving([] { throw std::bad_alloc(); });
  EXPECT_TRUE(winmm.PlayShort("Keys", 0xF8));
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(winmm.PlayLong("Keys", {0xF0, 0xF7})) << i;
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  EXPECT_EQ(log.Lines(), std::vector<std::string>(6, "ERROR MIDI input dropped: std::bad_alloc"));
  winmm.TakeCalls();
}

}  // namespace
}  // namespace corvalint::test
