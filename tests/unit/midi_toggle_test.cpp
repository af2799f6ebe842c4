#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "corvalint_wrapper.h"
#include "support/log_capture.h"
#include "support/midi_desk.h"
#include "winmidi/midi_scan.h"

// Switching endpoints on and off, in a registry and through the exported functions.

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MidiToggle : public MidiDesk {
 protected:
  // One source and one destination, found by a scan.
  MidiToggle() {
    winmm.SetInputs({"Keys"});
    winmm.SetOutputs({"Synth"});
    ScanMidiDevices(registry);
    keys = registry.SourceAt(0);
    synth = registry.DestinationAt(0);
    Forget();
  }

  std::string Event(const std::string& what, const MidiEndpoint& endpoint) {
    return "<" + what + " " + endpoint.name + " " + std::to_string(endpoint.uniqueId) +
           (endpoint.off ? " off>" : " on>");
  }

  MidiSourcePointer keys;
  MidiDestinationPointer synth;
};

TEST_F(MidiToggle, TwiceBringsASourceBackAndAnnouncesAnAddAndARemove) {
  registry.ToggleSource(keys->uniqueId);
  EXPECT_TRUE(keys->IsOpen());
  EXPECT_EQ(Printed(), "source added Keys\n" + Event("source added", *keys));
  registry.ToggleSource(keys->uniqueId);
  EXPECT_TRUE(keys->off);
  EXPECT_TRUE(keys->available);
  EXPECT_EQ(keys->handle, nullptr);
  EXPECT_EQ(Printed(), Event("source removed", *keys));
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  winmm.TakeCalls();
}

TEST_F(MidiToggle, TwiceBringsADestinationBackAndAnnouncesAnAddAndARemove) {
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutGetNumDevs()", "midiOutOpen(0)"));
  EXPECT_EQ(Printed(), Event("destination added", *synth) + "destination added Synth\n");
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutClose(Synth)"));
  EXPECT_EQ(Printed(), Event("destination removed", *synth));
  EXPECT_TRUE(synth->off);
  EXPECT_EQ(synth->handle, nullptr);
}

TEST_F(MidiToggle, AFailedOpenLeavesItOffAndTheNextToggleTriesAgain) {
  winmm.Fail("midiInOpen", 4);
  winmm.Fail("midiOutOpen", 4);
  registry.ToggleSource(keys->uniqueId);
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_TRUE(keys->off);
  EXPECT_TRUE(synth->off);
  EXPECT_FALSE(keys->available);
  EXPECT_FALSE(synth->available);
  EXPECT_EQ(Printed(), "");
  registry.ToggleSource(keys->uniqueId);
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.OpenDevices(), ElementsAre("Keys", "Synth"));
  EXPECT_TRUE(keys->available);
  EXPECT_TRUE(synth->available);
  Forget();
}

TEST_F(MidiToggle, TheFlagIsTurnedBeforeTheDeviceIsTried) {
  winmm.WhenCalled("midiInOpen", [this] { EXPECT_FALSE(keys->off); });
  winmm.WhenCalled("midiOutOpen", [this] { EXPECT_FALSE(synth->off); });
  winmm.WhenCalled("midiInStop", [this] { EXPECT_TRUE(keys->off); });
  winmm.WhenCalled("midiOutClose", [this] { EXPECT_TRUE(synth->off); });
  for (int i = 0; i < 2; ++i) {
    registry.ToggleSource(keys->uniqueId);
    registry.ToggleDestination(synth->uniqueId);
  }
  EXPECT_EQ(winmm.Count("midiInStop"), 1);
  EXPECT_EQ(winmm.Count("midiOutClose"), 1);
  Forget();
}

TEST_F(MidiToggle, AnUnknownIdDoesNothing) {
  registry.ToggleSource(synth->uniqueId);
  registry.ToggleDestination(keys->uniqueId);
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
  EXPECT_EQ(Printed(), "");
  EXPECT_TRUE(keys->off);
  EXPECT_TRUE(synth->off);
}

TEST_F(MidiToggle, EachKindIsComparedWithItsOwnNumberOfDevices) {
  winmm.SetOutputs({"Synth", "Organ"});
  ScanMidiDevices(registry);
  Forget();
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutGetNumDevs()", "midiOutOpen(0)"));
  registry.ToggleSource(keys->uniqueId);
  const auto calls = winmm.TakeCalls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[0], "midiInGetNumDevs()");
  EXPECT_EQ(calls[1], "midiInOpen(0)");
}

// Devices came or went since the scan, and winmm's numbers may have moved.
TEST_F(MidiToggle, ANumberThatBelongsToAnotherDeviceByNowIsNotOpened) {
  winmm.SetInputs({"New", "Keys"});
  winmm.SetOutputs({"New", "Synth"});
  registry.ToggleSource(keys->uniqueId);
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiInGetNumDevs()", "midiInGetDevCapsA(0)",
                                             "midiOutGetNumDevs()", "midiOutGetDevCapsA(0)"));
  EXPECT_TRUE(keys->off);
  EXPECT_FALSE(keys->available);
  EXPECT_TRUE(synth->off);
  EXPECT_FALSE(synth->available);
  EXPECT_EQ(Printed(), "");

  ScanMidiDevices(registry);
  registry.ToggleSource(keys->uniqueId);
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.OpenDevices(), ElementsAre("Keys", "Synth"));
  Forget();
}

TEST_F(MidiToggle, ANumberThatStillNamesTheDeviceIsOpenedThoughOthersCame) {
  winmm.SetInputs({"Keys", "New"});
  winmm.SetOutputs({"Synth", "New"});
  registry.ToggleSource(keys->uniqueId);
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_THAT(winmm.OpenDevices(), ElementsAre("Keys", "Synth"));
  Forget();
}

TEST_F(MidiToggle, ADeviceThatIsGoneIsNotOpened) {
  winmm.SetInputs({});
  winmm.SetOutputs({});
  registry.ToggleSource(keys->uniqueId);
  registry.ToggleDestination(synth->uniqueId);
  EXPECT_EQ(winmm.Count("midiInOpen") + winmm.Count("midiOutOpen"), 0);
  EXPECT_FALSE(keys->available);
  EXPECT_FALSE(synth->available);
  Forget();
}

TEST_F(MidiToggle, TogglesWithoutADelegateAnnounceNothing) {
  registry.delegate = nullptr;
  for (int i = 0; i < 2; ++i) {
    registry.ToggleSource(keys->uniqueId);
    registry.ToggleDestination(synth->uniqueId);
  }
  EXPECT_EQ(Printed(), "source added Keys\ndestination added Synth\n");
  winmm.TakeCalls();
}

// The exported functions, on the process's own registry.
class ExportedToggle : public MidiDesk {
 protected:
  // Ids below zero: the host passes the same 32 bits unsigned.
  ExportedToggle() {
    winmm.SetInputs({"Keys"});
    winmm.SetOutputs({"Synth"});
    MidiEndpointRegistry& own = GetMidiEndpointRegistry();
    own.delegate = &delegate;
    ScanMidiDevices(own);
    keys = own.SourceAt(0)->uniqueId;
    synth = own.DestinationAt(0)->uniqueId;
    Forget();
  }
  ~ExportedToggle() override {
    winmm.SetInputs({});
    winmm.SetOutputs({});
    ScanMidiDevices(GetMidiEndpointRegistry());
    GetMidiEndpointRegistry().delegate = nullptr;
    Forget();
  }

  std::int32_t keys = 0;
  std::int32_t synth = 0;
};

TEST_F(ExportedToggle, SwitchesOnAndOffAndTellsTheStatus) {
  ASSERT_LT(keys, 0);
  EXPECT_EQ(get_source_status(keys), 0);
  EXPECT_EQ(get_destination_status(synth), 0);
  EXPECT_EQ(Printed(), "falsefalse");
  set_source_status(static_cast<unsigned int>(keys));
  set_destination_status(static_cast<unsigned int>(synth));
  EXPECT_THAT(winmm.OpenDevices(), ElementsAre("Keys", "Synth"));
  Printed();
  EXPECT_EQ(get_source_status(keys), 1);
  EXPECT_EQ(get_destination_status(synth), 1);
  EXPECT_EQ(Printed(), "truetrue");
  set_source_status(static_cast<unsigned int>(keys));
  set_destination_status(static_cast<unsigned int>(synth));
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
}

TEST_F(ExportedToggle, AFailedOpenShowsAsUnavailableUntilOneSucceeds) {
  EXPECT_EQ(get_source_available(keys), 1);
  EXPECT_EQ(get_destination_available(synth), 1);
  winmm.Fail("midiInOpen", 4);
  winmm.Fail("midiOutOpen", 4);
  set_source_status(static_cast<unsigned int>(keys));
  set_destination_status(static_cast<unsigned int>(synth));
  EXPECT_EQ(get_source_available(keys), 0);
  EXPECT_EQ(get_destination_available(synth), 0);
  EXPECT_EQ(Printed(), "");
  EXPECT_EQ(get_source_status(keys), 0);
  EXPECT_EQ(get_destination_status(synth), 0);
  set_source_status(static_cast<unsigned int>(keys));
  set_destination_status(static_cast<unsigned int>(synth));
  EXPECT_EQ(get_source_available(keys), 1);
  EXPECT_EQ(get_destination_available(synth), 1);
}

TEST_F(ExportedToggle, AnUnknownIdIsNeitherOnNorAvailableAndPrintsNothing) {
  EXPECT_EQ(get_source_status(synth), 0);
  EXPECT_EQ(get_destination_status(keys), 0);
  EXPECT_EQ(get_source_available(synth), 0);
  EXPECT_EQ(get_destination_available(keys), 0);
  set_source_status(static_cast<unsigned int>(synth));
  set_destination_status(static_cast<unsigned int>(keys));
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

TEST_F(ExportedToggle, AFailureInsideStaysInside) {
  LogCapture log;
  winmm.WhenCalled("midiInOpen", [] { throw std::runtime_error("no memory"); });
  EXPECT_NO_THROW(set_source_status(static_cast<unsigned int>(keys)));
  EXPECT_THAT(log.Lines(), ElementsAre("ERROR endpoint not switched: no memory"));
  winmm.WhenCalled("midiInOpen", nullptr);
  set_source_status(static_cast<unsigned int>(keys));  // whatever it was, back to a sound state
}

}  // namespace
}  // namespace corvalint::test
