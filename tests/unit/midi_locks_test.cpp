#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <thread>

#include "support/midi_desk.h"
#include "support/test_server.h"
#include "winmidi/midi_destination.h"
#include "winmidi/midi_link_controller.h"
#include "winmidi/midi_scan.h"

// Scenes in which the desktop's devices, the scan, the host and the senders meet.

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A standard output that takes nothing until it is drained, and then everything.
class FullPipe {
 public:
  FullPipe() {
    std::fflush(stdout);
    original = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string filler(4096, '.');
    while (write(ends[1], filler.data(), filler.size()) > 0) {
    }
    while (write(ends[1], ".", 1) > 0) {
    }
    EXPECT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    EXPECT_EQ(dup2(ends[1], STDOUT_FILENO), STDOUT_FILENO);
    close(ends[1]);
  }
  ~FullPipe() {
    EXPECT_EQ(dup2(original, STDOUT_FILENO), STDOUT_FILENO);
    close(original);
    close(ends[0]);
  }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;

  // What is printed from now on fits into the room that this makes.
  void Drain() const {
    char part[4096];
    while (read(ends[0], part, sizeof part) > 0) {
    }
  }

 private:
  int original = -1;
  int ends[2] = {-1, -1};
};

class MidiLocks : public MidiDesk {
 protected:
  void Scan() { ScanMidiDevices(registry); }
};

// The driver may be slow, and a callback that the close waits for may need either lock.
TEST_F(MidiLocks, CallsWinmmWithoutTheLocksThatMidiWaitsFor) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  ASSERT_EQ(Open(AddDestination("Synth", 0, 1)), kMidiNoError);
  ASSERT_EQ(Open(AddSource("Keys", 0, 2)), kMidiNoError);
  for (const char* function :
       {"midiOutGetNumDevs", "midiInGetNumDevs", "midiOutGetDevCapsA", "midiInGetDevCapsA",
        "midiOutClose", "midiInStop", "midiInReset", "midiInUnprepareHeader", "midiInClose"}) {
    winmm.WhenCalled(function, [this] { server.ExpectNoLockHeld(); });
  }
  Scan();
  winmm.SetOutputs({});
  winmm.SetInputs({});
  Scan();
  EXPECT_EQ(winmm.Count("midiOutClose"), 1);
  EXPECT_EQ(winmm.Count("midiInClose"), 1);
  Forget();
}

// A note arrives while its keyboard is taken off: the scan waits for the callback, the callback for
// `clientLock`, and its holder for `midiLock`.
TEST_F(MidiLocks, ANoteDuringTheRemovalOfItsSourceDoesNotLockUp) {
  MidiLinkController controller(registry);
  winmm.SetInputs({"Keys"});
  ASSERT_EQ(Open(AddSource("Keys", 0, 2)), kMidiNoError);
  winmm.SetInputs({});

  Latch clientLockHeld, noteArrived, resetBegun;
  delegate.WhenReceiving([&] {
    noteArrived.Open();
    static const std::uint8_t kNote[] = {0x90, 60, 100};
    controller.MidiReceived(kNote, 3, "Keys", 2, 9);
  });
  winmm.WhenCalled("midiInReset", [&] { resetBegun.Open(); });
  std::thread announcer([&] {
    CriticalSectionScope holdClients(server.clientLock);
    clientLockHeld.Open();
    resetBegun.Wait();
    CriticalSectionScope holdPorts(server.midi);
  });
  std::thread player([&] {
    clientLockHeld.Wait();
    EXPECT_TRUE(winmm.PlayShort("Keys", 0x643C90));
  });
  noteArrived.Wait();
  delegate.WhenReceiving(nullptr);  // for the buffers that the reset gives back
  Scan();
  player.join();
  announcer.join();
  EXPECT_THAT(server.device.TakePackets(),
              ElementsAre(MidiBytes("Keys", 2, 9, "\x90\x3C\x64"),
                          AnnouncementBytes("/remove_remote_source", "Keys", 2)));
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  Forget();
}

// Standard output may be a pipe that nobody empties for a while.
TEST_F(MidiLocks, AScanThatCannotPrintKeepsTheLockOfThePublishedPortsFromNobody) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  TestServer other;  // asks no question aloud
  std::future<void> sender;
  bool sentInTime = false;
  {
    const FullPipe output;
    std::thread scanner([this] { Scan(); });
    while (other.questions < 2) std::this_thread::yield();
    sender = std::async(std::launch::async, [&] { CriticalSectionScope holdPorts(other.Lock()); });
    sentInTime = sender.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    output.Drain();
    scanner.join();
    sender.wait();
  }
  EXPECT_TRUE(sentInTime);
  EXPECT_EQ(registry.SourceCount(), 1);
  Forget();
}

TEST_F(MidiLocks, TwoScansAtOnceDoNotEraseEachOthersRecords) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  Scan();
  const auto keys = registry.SourceAt(0);
  const auto synth = registry.DestinationAt(0);
  std::atomic<int> inside{0};
  winmm.WhenCalled("midiInGetDevCapsA", [&] {
    EXPECT_EQ(++inside, 1);
    for (int i = 0; i < 100; ++i) std::this_thread::yield();
    --inside;
  });
  std::thread other([this] {
    for (int i = 0; i < 50; ++i) Scan();
  });
  for (int i = 0; i < 50; ++i) Scan();
  other.join();
  EXPECT_EQ(registry.SourceAt(0), keys);
  EXPECT_EQ(registry.DestinationAt(0), synth);
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
  Forget();
}

TEST_F(MidiLocks, AToggleWaitsForTheScanThatIsUnderWay) {
  winmm.SetOutputs({"Synth"});
  Scan();
  const std::int32_t id = registry.DestinationAt(0)->uniqueId;
  Latch toggling;
  std::thread host;
  winmm.WhenCalled("midiInGetNumDevs", [&] {
    host = std::thread([&] {
      toggling.Open();
      registry.ToggleDestination(id);
    });
    toggling.Wait();
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
    EXPECT_EQ(winmm.Count("midiOutOpen"), 0);
  });
  winmm.WhenCalled("midiOutOpen", [this] { EXPECT_EQ(server.scans, 0); });
  Scan();
  host.join();
  EXPECT_THAT(winmm.OpenDevices(), ElementsAre("Synth"));
  Forget();
}

TEST_F(MidiLocks, TogglesCallWinmmWithoutTheLocksThatMidiWaitsFor) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  AddDestination("Synth", 0, 1);
  AddSource("Keys", 0, 2);
  for (const char* function : {"midiOutOpen", "midiOutClose", "midiInOpen", "midiInPrepareHeader",
                               "midiInAddBuffer", "midiInStart", "midiInReset", "midiInClose"}) {
    winmm.WhenCalled(function, [this] { server.ExpectNoLockHeld(); });
  }
  for (int i = 0; i < 2; ++i) {
    registry.ToggleDestination(1);
    registry.ToggleSource(2);
  }
  EXPECT_EQ(winmm.Count("midiOutClose"), 1);
  EXPECT_EQ(winmm.Count("midiInClose"), 1);
  Forget();
}

// A system-exclusive message may take 21 seconds on the wire; whoever switches the output off does
// not wait for it.
TEST_F(MidiLocks, SwitchingAnOutputOffCutsAMessageOnItsWayShort) {
  winmm.SetOutputs({"Synth"});
  const auto synth = AddDestination("Synth", 0, 1);
  ASSERT_EQ(Open(synth), kMidiNoError);
  winmm.HoldBlocks("Synth");
  Latch onItsWay;
  winmm.WhenCalled("midiOutUnprepareHeader", [&] { onItsWay.Open(); });
  std::thread sender([&] {
    const std::uint8_t dump[] = {0xF0, 1, 0xF7};
    EXPECT_TRUE(SendToMidiDestinations(registry.DestinationsWithId(1), dump, 3));
  });
  onItsWay.Wait();
  registry.ToggleDestination(1);
  sender.join();
  EXPECT_GE(winmm.Count("midiOutReset"), 1);
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  EXPECT_EQ(synth->handle, nullptr);
  Forget();
}

TEST_F(MidiLocks, ADriverThatBlocksInsideTheSendIsFreedByTheClosersReset) {
  winmm.SetOutputs({"Synth"});
  ASSERT_EQ(Open(AddDestination("Synth", 0, 1)), kMidiNoError);
  Latch inside, reset;
  winmm.WhenCalled("midiOutLongMsg", [&] {
    inside.Open();
    reset.Wait();
  });
  winmm.WhenCalled("midiOutReset", [&] { reset.Open(); });
  std::thread sender([&] {
    const std::uint8_t note[] = {0x90, 60, 1};
    SendToMidiDestinations(registry.DestinationsWithId(1), note, 3);
  });
  inside.Wait();
  registry.ToggleDestination(1);
  sender.join();
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  Forget();
}

TEST_F(MidiLocks, ADestinationThatVanishesDuringASendLivesUntilTheSendHasEnded) {
  winmm.SetOutputs({"Synth"});
  std::weak_ptr<MidiDestinationEndpoint> synth = AddDestination("Synth", 0, 1);
  ASSERT_EQ(Open(synth.lock()), kMidiNoError);
  winmm.SetOutputs({});
  winmm.HoldBlocks("Synth");
  Latch onItsWay;
  winmm.WhenCalled("midiOutUnprepareHeader", [&] { onItsWay.Open(); });
  std::thread sender([&] {
    const std::uint8_t dump[] = {0xF0, 1, 0xF7};
    SendToMidiDestinations(registry.DestinationsWithId(1), dump, 3);
  });
  onItsWay.Wait();
  Scan();
  sender.join();
  EXPECT_TRUE(synth.expired());
  EXPECT_EQ(registry.DestinationCount(), 0);
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  Forget();
}

// A sender whose look-up came before the close meets a closed device, never a stale handle: the
// scripted winmm fails the test on one.
TEST_F(MidiLocks, SendersAndTogglesNeverMeetAStaleHandle) {
  winmm.SetOutputs({"Synth"});
  AddDestination("Synth", 0, 1);
  std::atomic<bool> done{false};
  std::thread sender([&] {
    const std::uint8_t note[] = {0x90, 60, 1};
    while (!done) SendToMidiDestinations(registry.DestinationsWithId(1), note, 3);
  });
  for (int i = 0; i < 200; ++i) {
    registry.ToggleDestination(1);
    std::this_thread::yield();
  }
  done = true;
  sender.join();
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  Forget();
}

TEST_F(MidiLocks, PlayingIntoASourceThatIsToggledReachesNoClosedDevice) {
  winmm.SetInputs({"Keys"});
  AddSource("Keys", 0, 2);
  std::atomic<bool> done{false};
  std::thread player([&] {
    while (!done) {
      winmm.PlayLong("Keys", {0xF0, 1, 0xF7});
      winmm.PlayShort("Keys", 0x643C90);
    }
  });
  for (int i = 0; i < 200; ++i) registry.ToggleSource(2);
  done = true;
  player.join();
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  Forget();
}

TEST_F(MidiLocks, TheHostMayAskWhileTheListsChange) {
  std::atomic<bool> done{false};
  std::thread host([&] {
    while (!done) {
      for (const auto& source : registry.Sources()) EXPECT_EQ(source->name, "Keys");
      registry.ToggleSource(registry.SourceCount() > 0 ? 1 : 2);
      registry.DestinationWithId(1);
    }
  });
  for (int i = 0; i < 100; ++i) {
    winmm.SetInputs({"Keys"});
    winmm.SetOutputs({"Synth"});
    Scan();
    winmm.SetInputs({});
    winmm.SetOutputs({});
    Scan();
  }
  done = true;
  host.join();
  EXPECT_EQ(registry.SourceCount(), 0);
  EXPECT_EQ(registry.DestinationCount(), 0);
  Forget();
}

}  // namespace
}  // namespace corvalint::test
