// A driver that refuses to close an input just when there is no memory left.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "support/empty_heap.h"
#include "support/log_capture.h"
#include "support/midi_desk.h"
#include "winmidi/midi_scan.h"
#include "winmidi/midi_source.h"

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kClosesUntilItIsGivenUp = 51;

class MidiSourceMemory : public MidiDesk {
 protected:
  MidiSourceMemory() {
    winmm.SetInputs({"Keys"});
    keys = AddSource("Keys", 0, 7);
  }

  void SetUp() override {
    if (!kHeapCanBeEmpty) GTEST_SKIP() << "this sanitizer's heap refuses nothing";
  }

  // From that call of `midiInClose` on nothing can be had from the heap. Earlier the scripted winmm
  // needs it for its own log.
  void EmptyTheHeapInClose(int number) {
    closesLeft = number;
    winmm.WhenCalled("midiInClose", [this] { heapIsEmpty = --closesLeft == 0; });
  }

  // Opens or closes; with an exception the test has failed. The heap is filled again either way.
  void ExpectNoException(const std::function<void()>& action) {
    std::string thrown;
    try {
      action();
      heapIsEmpty = false;
    } catch (const std::exception& failure) {
      heapIsEmpty = false;
      thrown = failure.what();
    }
    EXPECT_EQ(thrown, "");
  }

  // What a driver does much later with what it was never able to give back. The sanitizer would see
  // that the buffers or the source are gone.
  void ExpectTheDriverMayStillUse(const std::vector<MidiHeader*>& queued) {
    ASSERT_EQ(queued.size(), 4u);
    clock.SetTicks(0);
    for (MidiHeader* header : queued) {
      std::fill_n(header->data, header->bufferLength, '\xF7');
      header->bytesRecorded = 1;
    }
    EXPECT_TRUE(
        winmm.CallBack("Keys", kMidiInLongData, reinterpret_cast<std::uintptr_t>(queued.front())));
    EXPECT_THAT(delegate.TakeReceived(), ElementsAre("Keys 7: F7 at 0"));
    EXPECT_THAT(winmm.TakeCalls(), IsEmpty());  // not queued again
  }

  // The desktop forgets the device, so that only what was kept on purpose is left of it.
  void Unplug() {
    keys.reset();
    winmm.SetInputs({});
    ScanMidiDevices(registry);
    EXPECT_EQ(registry.SourceCount(), 0);
    Forget();
  }

  LogCapture log;
  MidiSourcePointer keys;
  int closesLeft = 0;
};

TEST_F(MidiSourceMemory, ARefusedCloseKeepsTheRecordAndItsBuffersWithoutAny) {
  ASSERT_EQ(Open(keys), kMidiNoError);
  const std::vector<MidiHeader*> queued = winmm.Queued("Keys");
  winmm.KeepBuffersForever("Keys");
  EmptyTheHeapInClose(kClosesUntilItIsGivenUp);
  ExpectNoException([this] { Close(keys, false); });
  ASSERT_EQ(closesLeft, 0);
  EXPECT_EQ(keys->handle, nullptr);
  EXPECT_TRUE(keys->off);
  Unplug();
  ExpectTheDriverMayStillUse(queued);
}

TEST_F(MidiSourceMemory, AnOpenThatGotStuckKeepsThemWithoutAnyToo) {
  winmm.Fail("midiInStart", 99);
  winmm.KeepBuffersForever("Keys");
  std::vector<MidiHeader*> queued;
  winmm.WhenCalled("midiInStart", [&] { queued = winmm.Queued("Keys"); });
  EmptyTheHeapInClose(1 + kClosesUntilItIsGivenUp);
  MidiResult result = kMidiNoError;
  ExpectNoException([&] { result = Open(keys); });
  ASSERT_EQ(closesLeft, 0);
  EXPECT_EQ(result, 99u);
  EXPECT_TRUE(keys->off);
  EXPECT_FALSE(keys->available);
  Unplug();
  ExpectTheDriverMayStillUse(queued);
}

// The driver has the old buffers, so there must be new ones before the device is touched.
TEST_F(MidiSourceMemory, WithoutAnyForNewBuffersTheNextOpenFailsBeforeTheDeviceIsTouched) {
  ASSERT_EQ(Open(keys), kMidiNoError);
  const std::vector<MidiHeader*> queued = winmm.Queued("Keys");
  winmm.KeepBuffersForever("Keys");
  Close(keys, false);
  Forget();

  MidiResult result = kMidiNoError;
  ExpectNoException([&] {
    heapIsEmpty = true;
    result = Open(keys);
  });
  EXPECT_EQ(result, kMidiNoMemory);
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
  EXPECT_TRUE(keys->off);
  EXPECT_FALSE(keys->available);
  EXPECT_FALSE(keys->IsOpen());
  EXPECT_EQ(Printed(), "");
  ExpectTheDriverMayStillUse(queued);

  EXPECT_EQ(Open(keys), kMidiNoError);
  EXPECT_TRUE(keys->IsOpen());
  EXPECT_EQ(winmm.Queued("Keys").size(), 4u);
  Forget();
}

// Every refusal keeps its own buffers, and none of them lets go of those before.
TEST_F(MidiSourceMemory, WhateverWasKeptStaysHoweverOftenADriverRefuses) {
  std::vector<MidiHeader*> all;
  winmm.KeepBuffersForever("Keys");
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(Open(keys), kMidiNoError);
    const std::vector<MidiHeader*> queued = winmm.Queued("Keys");
    all.insert(all.end(), queued.begin(), queued.end());
    EmptyTheHeapInClose(kClosesUntilItIsGivenUp);
    ExpectNoException([this] { Close(keys, false); });
  }
  Unplug();
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
  ASSERT_EQ(all.size(), 12u);
  for (MidiHeader* header : all) std::fill_n(header->data, header->bufferLength, '\xF7');
}

}  // namespace
}  // namespace corvalint::test
