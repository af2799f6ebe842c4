// What becomes of the MIDI that a device sends.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/dispatch_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Packets = std::vector<std::string>;
using Calls = FakeVirtualMidi::Calls;

class MidiDispatchTest : public DispatchFixture {};

TEST_F(MidiDispatchTest, MidiThatNobodyTakesGoesToTheOthers) {
  Take(MidiMessage("Piano", -9, kBeyond32Bits, kNote));
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", -9, kBeyond32Bits, kNote)}));
  EXPECT_EQ(
      other.scripted.TakeQuestions(),
      (Packets{"destination(Piano, " + std::to_string(static_cast<std::uint32_t>(-9)) + ")"}));
  EXPECT_EQ(console.Take(), "");
  EXPECT_TRUE(peer->Silent());
}

// They keep nothing of what they are told, so a stream of notes does not tell them each time.
TEST_F(MidiDispatchTest, TheOtherDevicesManagersAreToldOnceUntilSomethingChanges) {
  for (int i = 0; i < 3; ++i) Take(MidiMessage("Piano", 5, 0, kNote));
  EXPECT_EQ(other.scripted.TakeQuestions(), (Packets{"destination(Piano, 5)"}));
  EXPECT_EQ(other.TakePackets().size(), 3u);
  AddDestination(6);
  Take(MidiMessage("Piano", 5, 0, kNote));
  EXPECT_EQ(other.scripted.TakeQuestions(), (Packets{"destination(Piano, 5)"}));
}

TEST_F(MidiDispatchTest, ADeviceThatComesLaterIsToldToo) {
  Take(MidiMessage("Piano", 5, 0, kNote));
  RecordingClient late;
  server.clients.Append(late);
  Take(MidiMessage("Piano", 5, 0, kNote));
  server.clients.Remove(late);
  EXPECT_EQ(late.scripted.TakeQuestions(), (Packets{"destination(Piano, 5)"}));
}

TEST_F(MidiDispatchTest, MidiInABundleGoesTheSameWay) {
  Publish(7);
  Take(OscBundle(1, {MidiMessage("Piano", 7, 5, kNote)}));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"send(1, 90 3C 7F)"}));
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", 7, 5, kNote)}));
}

TEST_F(MidiDispatchTest, MidiForAPublishedPortGoesThereAndToTheOthers) {
  Publish(7);
  Take(MidiMessage("another name", 7, 5, kNote));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"send(1, 90 3C 7F)"}));
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("another name", 7, 5, kNote)}));
  EXPECT_EQ(other.scripted.TakeQuestions(), (Packets{}));
}

TEST_F(MidiDispatchTest, MidiForADesktopDestinationGoesToNoOtherDevice) {
  AddDestination(7);
  Take(MidiMessage("Synth", 7, 5, kNote));
  EXPECT_EQ(other.TakePackets(), (Packets{}));
  EXPECT_EQ(other.scripted.TakeQuestions(), (Packets{"destination(Synth, 7)"}));
}

TEST_F(MidiDispatchTest, MidiForBothReachesBothAndNobodyElse) {
  Publish(7);
  AddDestination(7);
  std::string printed = "the port was never asked";
  driver.WhenSending([&](int) { printed = console.Text(); });
  const std::string before = console.Text();
  Take(MidiMessage("Piano", 7, 5, kNote));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"send(1, 90 3C 7F)"}));
  EXPECT_EQ(printed, before);  // the port comes first
  // The destination is closed, which its driver complains of: it was asked.
  EXPECT_NE(console.Take(), "");
  EXPECT_EQ(other.TakePackets(), (Packets{}));
  EXPECT_EQ(other.scripted.TakeQuestions(), (Packets{}));
}

TEST_F(MidiDispatchTest, TheOtherDevicesManagersAreAskedBeforeTheMidiGoesOut) {
  std::string order;
  other.scripted.whenHandled = [&] { order += "manager "; };
  other.whenSent = [&] { order += "device "; };
  Take(MidiMessage("Piano", 1, 5, kNote));
  EXPECT_EQ(order, "manager device ");
}

TEST_F(MidiDispatchTest, TheDesktopsDestinationsAreServedBeforeTheOtherDevicesManagersAreAsked) {
  AddDestination(7);
  std::string printed;
  other.scripted.whenHandled = [&] { printed = console.Take(); };
  Take(MidiMessage("Synth", 7, 5, kNote));
  EXPECT_EQ(printed, "MMSYSERR_INVALHANDLE\n");  // the destination is closed
  EXPECT_EQ(console.Take(), "");
}

TEST_F(MidiDispatchTest, RelayedMidiCarriesHostTime) {
  clock.SetTicks(10000);
  Take(OscMessage("/init_timing", "h", OscInt64(400)));  // offset 999600
  Take(MidiMessage("Piano", 1, kBeyond32Bits, kNote));
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", 1, kBeyond32Bits + 999600, kNote)}));
}

TEST_F(MidiDispatchTest, RelayedTimesWrap) {
  clock.SetTicks(10);
  Take(OscMessage("/init_timing", "h", OscInt64(0)));
  Take(MidiMessage("Piano", 1, INT64_MAX, kNote));
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", 1, INT64_MIN + 999, kNote)}));
}

TEST_F(MidiDispatchTest, TheIdOfMidiMayBeAString) {
  Publish(7);
  Take(OscMessage("/midi", "sshb",
                  OscText("Piano") + OscText("7") + OscInt64(5) + OscBlobBytes(kNote)));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"send(1, 90 3C 7F)"}));
}

TEST_F(MidiDispatchTest, AnEmptyBlobIsRelayedAsOne) {
  Take(MidiMessage("Piano", 1, 5, ""));
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", 1, 5, "")}));
}

// A name of four bytes leaves room for this many: the packet is as large as a frame can be.
TEST_F(MidiDispatchTest, TheLargestMidiIsRelayedWhole) {
  const std::string largest = MidiMessage("Pia", 1, 5, std::string(131036, 'x'));
  ASSERT_EQ(largest.size(), 131072u);
  Take(largest);
  EXPECT_EQ(other.TakePackets(), (Packets{largest}));
}

// Neither bytes of an earlier frame nor of the stack go anywhere.
TEST_F(MidiDispatchTest, ABlobThatClaimsMoreThanThereIsGoesNowhere) {
  Publish(7);
  EXPECT_THROW(Take(OscMessage("/midi", "sihb",
                               OscText("Piano") + OscInt32(7) + OscInt64(5) + OscInt32(131056))),
               osc::MalformedMessageException);
  EXPECT_EQ(driver.TakeCalls(), (Calls{}));
  EXPECT_EQ(other.TakePackets(), (Packets{}));
}

TEST_F(MidiDispatchTest, MidiIsNotHeldUpByAHolderOfTheClientLock) {
  // A device's own thread relays while an announcement may hold the lock.
  CriticalSectionScope hold(server.clientLock);
  std::thread device([this] { Take(MidiMessage("Piano", 1, 5, kNote)); });
  device.join();
  EXPECT_EQ(other.TakePackets().size(), 1u);
}

}  // namespace
}  // namespace corvalint
