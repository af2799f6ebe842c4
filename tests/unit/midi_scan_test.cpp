#include "winmidi/midi_scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "clients/route_changes.h"
#include "support/midi_desk.h"

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MidiScan : public MidiDesk {
 protected:
  void Scan() { ScanMidiDevices(registry); }

  // Names in list order.
  template <class List>
  static std::vector<std::string> Names(const List& list) {
    std::vector<std::string> names;
    for (const auto& endpoint : list) names.push_back(endpoint->name);
    return names;
  }
};

TEST_F(MidiScan, ListsNewDevicesInOrderWithIdsFromTheClockAndTheirNumbers) {
  winmm.SetOutputs({"Synth", "Drums"});
  winmm.SetInputs({"Keys", "Pads"});
  clock.SetTicks(50);  // 5000 ns, and 1000 more with each read
  Scan();
  EXPECT_EQ(Printed(),
            "?Synth ?Drums ?Keys ?Pads "
            "found destination with unique_id: 5000 || Synth\n"
            "found destination with unique_id: 6001 || Drums\n"
            "NOT a virtual source: Keys\n"
            "found source with unique_id: -7000 || Keys\n"
            "NOT a virtual source: Pads\n"
            "found source with unique_id: -7999 || Pads\n");
  EXPECT_THAT(winmm.TakeCalls(),
              ElementsAre("midiOutGetNumDevs()", "midiInGetNumDevs()", "midiOutGetDevCapsA(0)",
                          "midiOutGetDevCapsA(1)", "midiInGetDevCapsA(0)", "midiInGetDevCapsA(1)"));
  ASSERT_THAT(Names(registry.Destinations()), ElementsAre("Synth", "Drums"));
  ASSERT_THAT(Names(registry.Sources()), ElementsAre("Keys", "Pads"));
  EXPECT_EQ(registry.DestinationAt(0)->uniqueId, 5000);
  EXPECT_EQ(registry.DestinationAt(1)->uniqueId, 6001);
  EXPECT_EQ(registry.SourceAt(0)->uniqueId, -7000);
  EXPECT_EQ(registry.SourceAt(1)->uniqueId, -7999);
  EXPECT_EQ(registry.DestinationAt(1)->deviceIndex, 1u);
  EXPECT_EQ(registry.SourceAt(1)->deviceIndex, 1u);
  EXPECT_EQ(&registry.SourceAt(0)->registry, &registry);
}

// A host that polls takes the first lists that are not empty for the machine's whole lists.
TEST_F(MidiScan, ChangesBothListsInOneMoment) {
  std::vector<std::int64_t> counts;
  server.whenAsked = [&] {
    counts.push_back(registry.SourceCount() * 10 + registry.DestinationCount());
  };
  winmm.SetOutputs({"Synth", "Drums"});
  winmm.SetInputs({"Keys"});
  Scan();
  EXPECT_THAT(counts, ElementsAre(0, 0, 0));
  counts.clear();
  winmm.SetOutputs({"Drums", "Bass", "Horns"});
  winmm.SetInputs({});
  Scan();
  EXPECT_THAT(counts, ElementsAre(12, 12, 12));
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre("Drums", "Bass", "Horns"));
  EXPECT_THAT(Names(registry.Sources()), IsEmpty());
  Forget();
}

// Devices' clients remember which destinations an id has, until this count moves.
TEST_F(MidiScan, CountsADestinationThatComesOrGoesAsAChangeOfRoutes) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  std::uint64_t before = routeChanges.Count();
  Scan();
  EXPECT_NE(routeChanges.Count(), before) << "a new one";
  before = routeChanges.Count();
  Scan();
  EXPECT_EQ(routeChanges.Count(), before) << "nothing new";
  winmm.SetOutputs({});
  Scan();
  EXPECT_NE(routeChanges.Count(), before) << "one has gone";
  Forget();
}

TEST_F(MidiScan, NewEndpointsAreOffAvailableClosedAndNotAnnounced) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  Scan();
  Forget();
  for (const MidiEndpoint* endpoint :
       {static_cast<MidiEndpoint*>(registry.SourceAt(0).get()),
        static_cast<MidiEndpoint*>(registry.DestinationAt(0).get())}) {
    EXPECT_TRUE(endpoint->off);
    EXPECT_TRUE(endpoint->available);
    EXPECT_TRUE(endpoint->found);
    EXPECT_EQ(endpoint->handle, nullptr);
    EXPECT_FALSE(endpoint->IsOpen());
  }
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
}

// 10^10 ticks times 10^9 exceeds 64 bits; the product wraps before it is divided, and the id is the
// low half of the quotient.
TEST_F(MidiScan, IdsAreTakenFromTheWrappedProductOfTheCounter) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  clock.SetTicks(10'000'000'000);
  Scan();
  Forget();
  // -844674407370 and, 1000 ns later, -844674406370
  EXPECT_EQ(registry.DestinationAt(0)->uniqueId, 1434149942);
  EXPECT_EQ(registry.SourceAt(0)->uniqueId, -1434150942);
}

TEST_F(MidiScan, KnownDevicesKeepRecordIdAndPlaceAndGetTheirNewNumber) {
  winmm.SetOutputs({"Synth", "Drums"});
  winmm.SetInputs({"Keys", "Pads"});
  Scan();
  const auto synth = registry.DestinationAt(0);
  const auto keys = registry.SourceAt(0);
  const std::int32_t synthId = synth->uniqueId;
  const std::int32_t keysId = keys->uniqueId;
  Forget();
  winmm.SetOutputs({"Drums", "Synth"});
  winmm.SetInputs({"Pads", "Keys"});
  Scan();
  EXPECT_EQ(Printed(),
            "?Drums ?Synth ?Pads ?Keys NOT a virtual source: Pads\nNOT a virtual source: Keys\n");
  EXPECT_EQ(registry.DestinationAt(0), synth);
  EXPECT_EQ(registry.SourceAt(0), keys);
  EXPECT_EQ(synth->deviceIndex, 1u);
  EXPECT_EQ(keys->deviceIndex, 1u);
  EXPECT_EQ(synth->uniqueId, synthId);
  EXPECT_EQ(keys->uniqueId, keysId);
  winmm.TakeCalls();
}

TEST_F(MidiScan, NamesMustMatchByteByByte) {
  winmm.SetOutputs({"Synth"});
  Scan();
  winmm.SetOutputs({"Synth ", "synth", "Synt", "Synth"});
  Scan();
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre("Synth", "Synth ", "synth", "Synt"));
  EXPECT_EQ(registry.DestinationAt(0)->deviceIndex, 3u);
  Forget();
}

TEST_F(MidiScan, NamesEndAtTheFirstZeroByteOrFillAllThirtyTwoBytes) {
  const std::string full = "0123456789ABCDEF0123456789ABCDEF";
  const std::string cut("Caf\xE9\0tail", 9);
  winmm.SetOutputs({full, cut});
  winmm.SetInputs({full, cut});
  Scan();
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre(full, "Caf\xE9"));
  EXPECT_THAT(Names(registry.Sources()), ElementsAre(full, "Caf\xE9"));
  Forget();
}

TEST_F(MidiScan, TwoDevicesOfOneNameShareARecordWithTheSecondOnesNumber) {
  winmm.SetOutputs({"Twin", "Other", "Twin"});
  winmm.SetInputs({"Twin", "Twin"});
  Scan();
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre("Twin", "Other"));
  EXPECT_THAT(Names(registry.Sources()), ElementsAre("Twin"));
  EXPECT_EQ(registry.DestinationAt(0)->deviceIndex, 2u);
  EXPECT_EQ(registry.SourceAt(0)->deviceIndex, 1u);
  Forget();
}

TEST_F(MidiScan, SkipsThePortsThatTheLibraryPublishesItself) {
  server.published = {"iPad"};
  winmm.SetOutputs({"iPad", "Synth"});
  winmm.SetInputs({"iPad"});
  clock.SetTicks(50);
  Scan();
  EXPECT_EQ(Printed(),
            "?iPad ?Synth ?iPad is virtual destination: iPad\n"
            "found destination with unique_id: 5001 || Synth\n"
            "virtual source: iPad\n");
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre("Synth"));
  EXPECT_EQ(registry.SourceCount(), 0);
  winmm.TakeCalls();
}

// A port that was made between two scans has the name of a listed device: its record is not found.
TEST_F(MidiScan, DropsAListedDeviceOnceItsNameIsAPublishedPort) {
  winmm.SetOutputs({"iPad"});
  Scan();
  server.published = {"iPad"};
  Scan();
  EXPECT_EQ(registry.DestinationCount(), 0);
  Forget();
}

TEST_F(MidiScan, ADeviceThatGivesNoCapabilitiesIsSkippedForThisScan) {
  winmm.SetOutputs({"Synth", "Drums"});
  winmm.SetInputs({"Keys", "Pads"});
  winmm.Fail("midiOutGetDevCapsA", kMidiBadDevice);
  winmm.Fail("midiInGetDevCapsA", kMidiNoMemory);
  Scan();
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre("Drums"));
  EXPECT_THAT(Names(registry.Sources()), ElementsAre("Pads"));
  EXPECT_EQ(registry.DestinationAt(0)->deviceIndex, 1u);
  EXPECT_EQ(registry.SourceAt(0)->deviceIndex, 1u);
  Forget();
}

TEST_F(MidiScan, AListedDeviceThatGivesNoCapabilitiesAnyMoreIsRemovedAndAnnounced) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  Scan();
  const std::int32_t synth = registry.DestinationAt(0)->uniqueId;
  const std::int32_t keys = registry.SourceAt(0)->uniqueId;
  winmm.Fail("midiOutGetDevCapsA", kMidiBadDevice);
  winmm.Fail("midiInGetDevCapsA", kMidiBadDevice);
  Scan();
  EXPECT_THAT(server.device.TakePackets(),
              ElementsAre(AnnouncementBytes("/remove_remote_destination", "Synth", synth),
                          AnnouncementBytes("/remove_remote_source", "Keys", keys)));
  EXPECT_EQ(registry.DestinationCount(), 0);
  EXPECT_EQ(registry.SourceCount(), 0);
  Forget();
}

TEST_F(MidiScan, VanishedDevicesAreAnnouncedFromTheLastToTheFirstEvenIfTheyNeverWereOn) {
  AddDestination("A", 0, 1);
  AddDestination("B", 1, 2);
  AddDestination("C", 2, 3);
  AddSource("P", 0, 4);
  AddSource("Q", 1, 5);
  AddSource("R", 2, 6);
  winmm.SetOutputs({"B"});
  winmm.SetInputs({"Q"});
  Scan();
  EXPECT_EQ(Printed(),
            "?B ?Q NOT a virtual source: Q\n"
            "sending remove_remote_destination with unique_id: 3 || C\n"
            "sending /remove_remote_destination: C || 3 \n"
            "sending remove_remote_destination with unique_id: 1 || A\n"
            "sending /remove_remote_destination: A || 1 \n"
            "sending remove_remote_source with unique_id: 6 || R\n"
            "sending /remove_remote_source: R || 6 \n"
            "sending remove_remote_source with unique_id: 4 || P\n"
            "sending /remove_remote_source: P || 4 \n");
  EXPECT_THAT(server.device.TakePackets(),
              ElementsAre(AnnouncementBytes("/remove_remote_destination", "C", 3),
                          AnnouncementBytes("/remove_remote_destination", "A", 1),
                          AnnouncementBytes("/remove_remote_source", "R", 6),
                          AnnouncementBytes("/remove_remote_source", "P", 4)));
  EXPECT_THAT(Names(registry.Destinations()), ElementsAre("B"));
  EXPECT_THAT(Names(registry.Sources()), ElementsAre("Q"));
  winmm.TakeCalls();
}

TEST_F(MidiScan, VanishedDevicesAreAnnouncedWithAnEmptyOwnerKey) {
  AddDestination("Synth", 0, 1);
  AddSource("Keys", 0, 2);
  server.device.scripted.owns = true;
  Scan();
  EXPECT_THAT(server.device.scripted.TakeQuestions(), ElementsAre("owns(, Synth)", "owns(, Keys)"));
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
  Forget();
}

TEST_F(MidiScan, OpenDevicesThatVanishAreClosedWithoutTheDelegate) {
  winmm.SetOutputs({"Synth"});
  winmm.SetInputs({"Keys"});
  const auto synth = AddDestination("Synth", 0, 1);
  const auto keys = AddSource("Keys", 0, 2);
  ASSERT_EQ(Open(synth), kMidiNoError);
  ASSERT_EQ(Open(keys), kMidiNoError);
  winmm.SetOutputs({});
  winmm.SetInputs({});
  Forget();
  Scan();
  EXPECT_THAT(winmm.TakeCalls(),
              ElementsAre("midiOutGetNumDevs()", "midiInGetNumDevs()", "midiOutClose(Synth)",
                          "midiInStop(Keys)", "midiInReset(Keys)", "midiInUnprepareHeader(Keys, 0)",
                          "midiInUnprepareHeader(Keys, 1)", "midiInUnprepareHeader(Keys, 2)",
                          "midiInUnprepareHeader(Keys, 3)", "midiInClose(Keys)"));
  EXPECT_THAT(winmm.OpenDevices(), IsEmpty());
  EXPECT_EQ(Printed(),
            "sending remove_remote_destination with unique_id: 1 || Synth\n"
            "sending /remove_remote_destination: Synth || 1 \n"
            "sending remove_remote_source with unique_id: 2 || Keys\n"
            "sending /remove_remote_source: Keys || 2 \n");
  EXPECT_TRUE(synth->off);
  EXPECT_TRUE(keys->off);
  EXPECT_EQ(synth->handle, nullptr);
  EXPECT_EQ(keys->handle, nullptr);
}

TEST_F(MidiScan, AVanishedSourceWhoseOpenFailedIsNotClosedAgain) {
  winmm.SetInputs({"Keys"});
  const auto keys = AddSource("Keys", 0, 2);
  winmm.Fail("midiInStart", kMidiNoMemory);
  ASSERT_EQ(Open(keys), kMidiNoMemory);
  ASSERT_NE(keys->handle, nullptr);
  winmm.SetInputs({});
  Forget();
  Scan();
  EXPECT_THAT(winmm.TakeCalls(), ElementsAre("midiOutGetNumDevs()", "midiInGetNumDevs()"));
  EXPECT_EQ(registry.SourceCount(), 0);
}

TEST_F(MidiScan, AReturningDeviceIsANewRecordWithANewId) {
  winmm.SetInputs({"Keys"});
  Scan();
  const auto first = registry.SourceAt(0);
  winmm.SetInputs({});
  Scan();
  winmm.SetInputs({"Keys"});
  Scan();
  EXPECT_NE(registry.SourceAt(0), first);
  EXPECT_NE(registry.SourceAt(0)->uniqueId, first->uniqueId);
  Forget();
}

TEST_F(MidiScan, RecordsOfVanishedDevicesAreFreed) {
  std::weak_ptr<MidiSourceEndpoint> keys = AddSource("Keys", 0, 1);
  std::weak_ptr<MidiDestinationEndpoint> synth = AddDestination("Synth", 0, 2);
  Scan();
  EXPECT_TRUE(keys.expired());
  EXPECT_TRUE(synth.expired());
  Forget();
}

TEST_F(MidiScan, DoesNothingWithoutAServerOrBeforeItsLockIsMade) {
  AddSource("Keys", 0, 1);
  server.midiLock = nullptr;
  Scan();
  theUsbServer = nullptr;
  Scan();
  EXPECT_EQ(registry.SourceCount(), 1);
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(winmm.TakeCalls(), IsEmpty());
}

TEST_F(MidiScan, EachScanIsBracketedForThePublishedNames) {
  winmm.SetOutputs({"Synth"});
  winmm.WhenCalled("midiOutGetNumDevs", [this] { EXPECT_EQ(server.scans, 1); });
  Scan();
  EXPECT_EQ(server.scans, 0);
  Forget();
}

}  // namespace
}  // namespace corvalint::test
