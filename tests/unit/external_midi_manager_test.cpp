#include "ports/external_midi_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "support/manager_fixture.h"
#include "support/source_port.h"

namespace corvalint {

bool operator==(const PublishedEndpoint& a, const PublishedEndpoint& b) {
  return a.kind == b.kind && a.name == b.name && a.id == b.id;
}

namespace {

using test::EndpointMessage;
using test::ExternalMidiManagerTest;
using test::SendToSourcePort;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint8_t kNote[] = {0x90, 0x3C, 0x64};

class RecordingController final : public ExternalMidiManagerDelegate {
 public:
  struct Delivery {
    const std::uint8_t* data;
    std::uint32_t count;
    std::string name;
    std::uint32_t id;
    std::uint32_t secondWord;
    std::int64_t timestamp;
    std::string key;

    bool operator==(const Delivery&) const = default;
  };

  void ExternalMidiReceived(const std::uint8_t* data, std::uint32_t count, const std::string& name,
                            std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                            const std::string& deviceKey) override {
    deliveries.push_back({data, count, name, id, secondWord, timestamp, deviceKey});
    if (whenReceived) whenReceived();
  }

  std::vector<Delivery> deliveries;
  std::function<void()> whenReceived;
};

TEST_F(ExternalMidiManagerTest, BeginsEmpty) {
  EXPECT_FALSE(manager.deviceDisconnected);
  EXPECT_THAT(manager.PublishedEndpoints(), IsEmpty());
  EXPECT_FALSE(manager.HasEndpointNamed(""));
  EXPECT_FALSE(manager.OwnsEndpoint("phone", "Piano"));
}

TEST_F(ExternalMidiManagerTest, PublishesASourceAndAnnouncesItToTheOthers) {
  manager.AddRemoteSource("Piano", 7);
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1"));
  EXPECT_THAT(Told(), ElementsAre(EndpointMessage("/add_remote_source", "Piano", 7)));
  EXPECT_THAT(other.scripted.TakeQuestions(), ElementsAre("owns(phone, Piano)"));
  EXPECT_EQ(console.Take(), "sending /add_remote_source: Piano || 7 \n");
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::source, "Piano", 7}));
}

TEST_F(ExternalMidiManagerTest, PublishesADestinationAndAnnouncesItToTheOthers) {
  manager.AddRemoteDestination("Synth", 0xFFFFFFFE);
  EXPECT_THAT(Calls(), ElementsAre("create(Synth) = 1"));
  EXPECT_THAT(Told(), ElementsAre(EndpointMessage("/add_remote_destination", "Synth", -2)));
  EXPECT_EQ(console.Take(), "sending /add_remote_destination: Synth || -2 \n");
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::destination, "Synth", 0xFFFFFFFE}));
}

TEST_F(ExternalMidiManagerTest, IgnoresAnIdThatItKnowsAlready) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Piano", 8);
  Calls();
  Told();
  console.Take();
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteSource("Organ", 7);
  manager.AddRemoteDestination("Organ", 8);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(console.Take(), "");
  EXPECT_FALSE(manager.HasEndpointNamed("Organ"));
}

// A younger port of the announced name, free for the record, must not hide the known id.
TEST_F(ExternalMidiManagerTest, IgnoresAKnownIdOfAnOlderPortBehindOneOfThatName) {
  manager.AddRemoteSource("X", 5);
  manager.AddRemoteDestination("Y", 1);
  manager.AddRemoteDestination("Z", 6);
  manager.AddRemoteSource("W", 2);
  Calls();
  Told();
  manager.AddRemoteSource("Y", 5);
  manager.AddRemoteDestination("W", 6);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(manager.PublishedEndpoints().size(), 4u);
}

TEST_F(ExternalMidiManagerTest, TellsSourceIdsAndDestinationIdsApart) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Synth", 7);
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::destination, "Synth", 7},
                          PublishedEndpoint{EndpointKind::source, "Piano", 7}));
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::destination, "Synth", 7}));
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1", "create(Synth) = 2", "close(1)"));
}

TEST_F(ExternalMidiManagerTest, ASourceAndADestinationOfOneNameShareAPort) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Piano", 8);
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1"));
  EXPECT_THAT(Told(), ElementsAre(EndpointMessage("/add_remote_source", "Piano", 7),
                                  EndpointMessage("/add_remote_destination", "Piano", 8)));
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_THAT(Calls(), IsEmpty());
  manager.RemoveRemoteDestination("Piano", 8);
  EXPECT_THAT(Calls(), ElementsAre("close(1)"));
  EXPECT_THAT(Told(), ElementsAre(EndpointMessage("/remove_remote_source", "Piano", 7),
                                  EndpointMessage("/remove_remote_destination", "Piano", 8)));
  EXPECT_THAT(manager.PublishedEndpoints(), IsEmpty());

  manager.AddRemoteDestination("Piano", 8);
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 2"));
  manager.AddRemoteSource("Piano", 7);
  const SourcePort shared = manager.SourcePortWithId(7);
  ASSERT_TRUE(shared);
  EXPECT_EQ(shared.record->deviceKey, "phone");  // as on every port that was there already
  manager.RemoveRemoteDestination("Piano", 8);
  EXPECT_THAT(Calls(), IsEmpty());
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_THAT(Calls(), ElementsAre("close(2)"));
}

TEST_F(ExternalMidiManagerTest, TwoSourcesOfOneNameGetTwoPorts) {
  driver.AllowEqualNames();
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteSource("Piano", 8);
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1", "create(Piano) = 2"));
  // The youngest port of that name that is free takes the destination.
  manager.AddRemoteDestination("Piano", 9);
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::destination, "Piano", 9},
                          PublishedEndpoint{EndpointKind::source, "Piano", 8},
                          PublishedEndpoint{EndpointKind::source, "Piano", 7}));
  manager.AddRemoteDestination("Piano", 10);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::destination, "Piano", 9},
                          PublishedEndpoint{EndpointKind::source, "Piano", 8},
                          PublishedEndpoint{EndpointKind::destination, "Piano", 10},
                          PublishedEndpoint{EndpointKind::source, "Piano", 7}));
}

TEST_F(ExternalMidiManagerTest, ASecondPortOfATakenNameLivesWithoutTheDriver) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteSource("Piano", 8);
  EXPECT_TRUE(SendToSourcePort(manager, kNote, 3, 8));
  EXPECT_EQ(Told().size(), 2u);
  manager.RemoveRemoteSource("Piano", 8);
  manager.RemoveRemoteSource("Piano", 7);
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1", "create(Piano) = 0", "send(0, 90 3C 64)",
                                   "close(1)"));
}

TEST_F(ExternalMidiManagerTest, ComparesNamesWholeAndUncut) {
  const std::string longName(40, 'n');
  manager.AddRemoteSource(longName, 7);
  manager.AddRemoteDestination(longName + "x", 8);
  manager.AddRemoteDestination("NNN", 9);
  EXPECT_THAT(manager.PublishedEndpoints(), ::testing::SizeIs(3));
  EXPECT_TRUE(manager.HasEndpointNamed(longName));
  EXPECT_TRUE(manager.HasEndpointNamed(longName + "x"));
  EXPECT_FALSE(manager.HasEndpointNamed(std::string(29, 'n') + ".."));
  EXPECT_FALSE(manager.HasEndpointNamed("nnn"));
  EXPECT_EQ(Calls().size(), 3u);
}

TEST_F(ExternalMidiManagerTest, IgnoresTheRemovalOfAnUnknownId) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Synth", 8);
  Calls();
  Told();
  console.Take();
  manager.RemoveRemoteSource("Synth", 8);
  manager.RemoveRemoteDestination("Piano", 7);
  manager.RemoveRemoteSource("Piano", 9);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(console.Take(), "");
  EXPECT_EQ(manager.PublishedEndpoints().size(), 2u);
}

TEST_F(ExternalMidiManagerTest, FindsWhatToRemoveByIdAndTellsTheNameThatItWasGiven) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Synth", 8);
  Calls();
  Told();
  console.Take();
  manager.RemoveRemoteSource("Other", 7);
  manager.RemoveRemoteDestination("Another", 8);
  EXPECT_THAT(Told(), ElementsAre(EndpointMessage("/remove_remote_source", "Other", 7),
                                  EndpointMessage("/remove_remote_destination", "Another", 8)));
  EXPECT_EQ(console.Take(),
            "sending /remove_remote_source: Other || 7 \n"
            "sending /remove_remote_destination: Another || 8 \n");
  EXPECT_THAT(Calls(), ElementsAre("close(1)", "close(2)"));
}

TEST_F(ExternalMidiManagerTest, KeepsTheOrderOfThePortsThatStay) {
  for (const char* name : {"A", "B", "C"}) {
    manager.AddRemoteSource(name, static_cast<std::uint32_t>(name[0]));
  }
  manager.RemoveRemoteSource("B", 'B');
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::source, "C", 'C'},
                          PublishedEndpoint{EndpointKind::source, "A", 'A'}));
  Calls();
}

// --- MIDI of the device

TEST_F(ExternalMidiManagerTest, WritesIntoThePortOfTheSourceWhateverTheName) {
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteSource("Organ", 8);
  EXPECT_TRUE(SendToSourcePort(manager, kNote, 3, 7));
  EXPECT_TRUE(SendToSourcePort(manager, kNote, 2, 8));
  EXPECT_TRUE(SendToSourcePort(manager, kNote, 0, 8));
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1", "create(Organ) = 2", "send(1, 90 3C 64)",
                                   "send(2, 90 3C)", "send(2, )"));
}

TEST_F(ExternalMidiManagerTest, SaysThatNoPortTookBytesForADestinationOrAnUnknownId) {
  manager.AddRemoteDestination("Piano", 7);
  EXPECT_FALSE(SendToSourcePort(manager, kNote, 3, 7));
  EXPECT_FALSE(SendToSourcePort(manager, kNote, 3, 8));
  manager.AddRemoteSource("Piano", 8);
  manager.RemoveRemoteSource("Piano", 8);
  EXPECT_FALSE(SendToSourcePort(manager, kNote, 3, 8));
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1"));
}

TEST_F(ExternalMidiManagerTest, CountsBytesAsTakenThatTheDriverRefuses) {
  driver.RefusePorts(true);
  driver.AnswerSendsWith(0);
  manager.AddRemoteSource("Piano", 7);
  EXPECT_TRUE(SendToSourcePort(manager, kNote, 3, 7));
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 0", "send(0, 90 3C 64)"));
}

TEST_F(ExternalMidiManagerTest, CallsTheDriverWithNoLockHeld) {
  std::vector<std::uint32_t> holds;
  const auto note = [&](int) {
    holds.push_back(server.clientLock.HoldsOfThisThread());
    holds.push_back(server.Lock().HoldsOfThisThread());
  };
  driver.WhenCreating(note);
  driver.WhenSending(note);
  driver.WhenClosing(note);
  manager.AddRemoteSource("Piano", 7);
  SendToSourcePort(manager, kNote, 3, 7);
  manager.RemoveRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Synth", 8);
  manager.RemoveRemoteDestination("Synth", 8);
  EXPECT_THAT(holds, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(Calls(), ElementsAre("create(Piano) = 1", "send(1, 90 3C 64)", "close(1)",
                                   "create(Synth) = 2", "close(2)"));
}

// --- MIDI of the desktop

TEST_F(ExternalMidiManagerTest, PassesOnWhatDesktopProgramsPlayWithItsDeviceKey) {
  RecordingController controller;
  manager.SetDelegate(&controller);
  manager.AddRemoteDestination("Synth", 8);
  manager.AddRemoteSource("Piano", 7);
  manager.AddRemoteDestination("Piano", 9);
  driver.Write(1, {0xF8});
  driver.Write(2, {0xF8, 0xFA});
  ASSERT_EQ(controller.deliveries.size(), 2u);
  for (auto& delivery : controller.deliveries) delivery.data = nullptr;
  using Delivery = RecordingController::Delivery;
  EXPECT_EQ(controller.deliveries[0], (Delivery{nullptr, 1, "Synth", 8, 0, 1234500, "phone"}));
  EXPECT_EQ(controller.deliveries[1], (Delivery{nullptr, 2, "Piano", 9, 0, 1234500, "phone"}));
  Calls();
}

TEST_F(ExternalMidiManagerTest, PassesAllArgumentsOnAsTheyCameAndTakesNoLock) {
  RecordingController controller;
  manager.MidiReceived(kNote, 3, "Piano", 7, 5, -9, "any key");
  manager.SetDelegate(&controller);
  controller.whenReceived = [&] {
    EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
    EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  };
  manager.MidiReceived(kNote, 3, "Piano", 7, 5, -9, "any key");
  ASSERT_EQ(controller.deliveries.size(), 1u);
  EXPECT_EQ(controller.deliveries[0],
            (RecordingController::Delivery{kNote, 3, "Piano", 7, 5, -9, "any key"}));
}

// --- names that fit no announcement

TEST_F(ExternalMidiManagerTest, PublishesANameThatFitsNoAnnouncementAndThrows) {
  const std::string name(4100, 'n');
  EXPECT_THROW(manager.AddRemoteSource(name, 7), osc::OutOfBufferMemoryException);
  EXPECT_THROW(manager.AddRemoteDestination(name, 8), osc::OutOfBufferMemoryException);
  EXPECT_EQ(manager.PublishedEndpoints().size(), 2u);
  EXPECT_TRUE(SendToSourcePort(manager, kNote, 3, 7));
  EXPECT_THROW(manager.RemoveRemoteSource(name, 7), osc::OutOfBufferMemoryException);
  EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  EXPECT_EQ(server.Lock().HoldsOfThisThread(), 0u);
  EXPECT_THAT(manager.PublishedEndpoints(),
              ElementsAre(PublishedEndpoint{EndpointKind::destination, name, 8}));
  EXPECT_THROW(manager.RemoveRemoteDestination(name, 8), osc::OutOfBufferMemoryException);
  EXPECT_THAT(manager.PublishedEndpoints(), IsEmpty());
  const std::string shown = std::string(29, 'n') + "..";
  EXPECT_THAT(Calls(), ElementsAre("create(" + shown + ") = 1", "send(1, 90 3C 64)", "close(1)"));
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(console.Take(), "");
}

}  // namespace
}  // namespace corvalint
