#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/native_mutex.h"
#include "support/midi_desk.h"
#include "winmidi/midi_link_controller.h"

// The lists, the look-ups, and the controller that stands between them and the devices.

namespace corvalint::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MidiRegistry : public MidiDesk {};

template <class Action>
std::string OutOfRangeText(Action action) {
  try {
    action();
  } catch (const std::out_of_range& failure) {
    return failure.what();
  }
  return "nothing was thrown";
}

TEST_F(MidiRegistry, BeginsEmptyWithoutADelegate) {
  const MidiEndpointRegistry fresh;
  EXPECT_EQ(fresh.SourceCount(), 0);
  EXPECT_EQ(fresh.DestinationCount(), 0);
  EXPECT_EQ(fresh.delegate, nullptr);
  EXPECT_EQ(Printed(), "");
}

TEST_F(MidiRegistry, SaysThatItsLockWasRefusedAndWorksAllTheSame) {
  static std::vector<std::uint32_t> spinCounts;
  static const MutexApi kRefusing{.initialise =
                                      [](NativeMutex& mutex, std::uint32_t spinCount) {
                                        MutexApi::System().initialise(mutex, spinCount);
                                        spinCounts.push_back(spinCount);
                                        return spinCount != 1024;
                                      },
                                  .destroy = MutexApi::System().destroy,
                                  .enter = MutexApi::System().enter,
                                  .leave = MutexApi::System().leave};
  Install<MutexApi>(&kRefusing);
  {
    MidiEndpointRegistry refused;
    EXPECT_EQ(Printed(), "could not create _mutex\n");
    EXPECT_THAT(spinCounts, ::testing::Contains(1024u));
    CriticalSectionScope hold(refused.bufferQueueLock);
    EXPECT_EQ(refused.SourceCount(), 0);
  }
  Install<MutexApi>(nullptr);
}

TEST_F(MidiRegistry, PositionsOutsideTheListsAreOutOfRange) {
  AddSource("Keys", 0, 1);
  AddDestination("Synth", 0, 2);
  EXPECT_EQ(registry.SourceAt(0)->name, "Keys");
  EXPECT_EQ(registry.DestinationAt(0)->name, "Synth");
  for (const std::int32_t position : {1, -1, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(OutOfRangeText([&] { registry.SourceAt(position); }), "invalid vector<T> subscript");
    EXPECT_EQ(OutOfRangeText([&] { registry.DestinationAt(position); }),
              "invalid vector<T> subscript");
  }
}

TEST_F(MidiRegistry, TheFirstOfSeveralEndpointsWithAnIdIsFound) {
  AddSource("A", 0, 0);
  const auto first = AddSource("B", 1, -5);
  AddSource("C", 2, -5);
  const auto one = AddDestination("D", 0, 6);
  const auto two = AddDestination("E", 1, 6);
  EXPECT_EQ(registry.SourceWithId(-5), first);
  EXPECT_EQ(registry.SourceWithId(6), nullptr);
  EXPECT_EQ(registry.SourceWithId(0)->name, "A");
  EXPECT_EQ(registry.DestinationWithId(6), one);
  EXPECT_EQ(registry.DestinationsWithId(6), (std::vector{one, two}));
  EXPECT_TRUE(registry.DestinationsWithId(7).empty());
  EXPECT_EQ(registry.DestinationWithId(-5), nullptr);
}

TEST_F(MidiRegistry, AnnouncesWhatIsOpenDestinationsFirstInListOrder) {
  winmm.SetInputs({"A", "B", "C"});
  winmm.SetOutputs({"D", "E", "F"});
  const auto a = AddSource("A", 0, 1);
  AddSource("B", 1, 2);
  const auto c = AddSource("C", 2, 3);
  const auto d = AddDestination("D", 0, 4);
  AddDestination("E", 1, 5);
  const auto f = AddDestination("F", 2, 6);
  Open(c);
  Open(a);
  Open(f);
  Open(d);
  const auto stale = AddSource("B", 1, 7);
  winmm.Fail("midiInStart", 4);
  Open(stale);
  ASSERT_NE(stale->handle, nullptr);
  stale->off = false;  // about to be tried again
  Forget();
  AnnounceOpenEndpoints(registry);
  EXPECT_EQ(Printed(),
            "<destination added D 4 on><destination added F 6 on>"
            "<source added A 1 on><source added C 3 on>");
  d->off = true;
  c->handle = nullptr;
  AnnounceOpenEndpoints(registry);
  EXPECT_EQ(Printed(), "<destination added F 6 on><source added A 1 on>");
  registry.delegate = nullptr;
  AnnounceOpenEndpoints(registry);
  EXPECT_EQ(Printed(), "");
}

TEST(MidiRegistrySingleton, IsOneForAllThreads) {
  std::vector<MidiEndpointRegistry*> seen(8);
  std::vector<std::thread> threads;
  for (auto& place : seen) threads.emplace_back([&place] { place = &GetMidiEndpointRegistry(); });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::set<MidiEndpointRegistry*>(seen.begin(), seen.end()).size(), 1u);
}

// --- the controller

class MidiLink : public MidiDesk {
 protected:
  MidiLinkController controller{registry};
};

TEST_F(MidiLink, SendsWhatIsReceivedToEveryDeviceUnlessItIsEmpty) {
  RecordingClient second;
  server.clients.Append(second);
  const std::uint8_t note[] = {0x90, 0x3C, 0x7F};
  controller.MidiReceived(note, 3, "Keys", -7, 0xFFFFFFFF00000001u);
  const std::string expected = MidiBytes("Keys", -7, -4294967295, "\x90\x3C\x7F");
  EXPECT_THAT(server.device.TakePackets(), ElementsAre(expected));
  EXPECT_THAT(second.TakePackets(), ElementsAre(expected));
  controller.MidiReceived(note, 1, "Keys", -7, 1);
  EXPECT_THAT(server.device.TakePackets(), ElementsAre(MidiBytes("Keys", -7, 1, "\x90")));
  second.TakePackets();
  controller.MidiReceived(note, 0, "Keys", -7, 1);
  controller.MidiReceived(nullptr, -1, "Keys", -7, 1);
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
  EXPECT_THAT(second.TakePackets(), IsEmpty());
  EXPECT_EQ(Printed(), "");
}

TEST_F(MidiLink, AnnouncesAddedEndpointsOnlyWhileTheyAreOn) {
  const auto keys = AddSource("Keys", 0, 7);
  const auto synth = AddDestination("Synth", 0, 9);
  controller.SourceAdded(*keys);
  controller.DestinationAdded(*synth);
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
  EXPECT_EQ(Printed(), "");
  keys->off = false;
  synth->off = false;
  controller.SourceAdded(*keys);
  controller.DestinationAdded(*synth);
  EXPECT_THAT(server.device.TakePackets(),
              ElementsAre(AnnouncementBytes("/add_remote_source", "Keys", 7),
                          AnnouncementBytes("/add_remote_destination", "Synth", 9)));
  EXPECT_THAT(server.device.scripted.TakeQuestions(), ElementsAre("owns(, Keys)", "owns(, Synth)"));
  EXPECT_EQ(Printed(),
            "sending /add_remote_source: Keys || 7 \n"
            "sending /add_remote_destination: Synth || 9 \n");
}

TEST_F(MidiLink, AnnouncesRemovedEndpointsWhateverTheirFlags) {
  const auto keys = AddSource("Keys", 0, 7);
  const auto synth = AddDestination("Synth", 0, 9);
  for (const bool off : {true, false}) {
    keys->off = off;
    synth->off = off;
    controller.SourceRemoved(*keys);
    controller.DestinationRemoved(*synth);
    EXPECT_THAT(server.device.TakePackets(),
                ElementsAre(AnnouncementBytes("/remove_remote_source", "Keys", 7),
                            AnnouncementBytes("/remove_remote_destination", "Synth", 9)));
    EXPECT_THAT(server.device.scripted.TakeQuestions(),
                ElementsAre("owns(, Keys)", "owns(, Synth)"));
  }
  Printed();
}

TEST_F(MidiLink, SendsWhatADesktopProgramWroteToTheOwnersOfThePort) {
  RecordingClient owner;
  owner.scripted.owns = true;
  server.clients.Append(owner);
  const std::uint8_t note[] = {0x90, 0x3C, 0x7F};
  controller.ExternalMidiReceived(note, 3, "iPad", 0xFFFFFFFEu, 0, 1234567890123, "key");
  EXPECT_THAT(owner.TakePackets(),
              ElementsAre(MidiBytes("iPad", -2, 1234567890123, "\x90\x3C\x7F")));
  EXPECT_THAT(owner.scripted.TakeQuestions(), ElementsAre("owns(key, iPad)"));
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
}

TEST_F(MidiLink, DoesNothingWithoutAServer) {
  const auto keys = AddSource("Keys", 0, 7);
  keys->off = false;
  theUsbServer = nullptr;
  const std::uint8_t note[] = {0xF8};
  controller.MidiReceived(note, 1, "Keys", 7, 1);
  controller.ExternalMidiReceived(note, 1, "Keys", 7, 0, 1, "");
  controller.SourceAdded(*keys);
  controller.SourceRemoved(*keys);
  controller.DestinationAdded(*keys);
  controller.DestinationRemoved(*keys);
  EXPECT_THAT(server.device.TakePackets(), IsEmpty());
  EXPECT_EQ(Printed(), "");
}

// What was switched on before the first device came is announced once, when the controller is made.
TEST_F(MidiLink, TheOneControllerBecomesTheDelegateAndAnnouncesOnce) {
  MidiEndpointRegistry& own = GetMidiEndpointRegistry();
  ASSERT_EQ(own.delegate, nullptr);
  auto synth = std::make_shared<MidiDestinationEndpoint>();
  synth->name = "Synth";
  synth->uniqueId = 9;
  {
    CriticalSectionScope hold(own.listLock);
    own.Append(synth);
  }
  winmm.SetOutputs({"Synth"});
  own.ToggleDestination(9);
  ASSERT_TRUE(synth->IsOpen());
  Forget();
  MidiLinkController& first = GetMidiLinkController();
  EXPECT_EQ(&first.Registry(), &own);
  EXPECT_EQ(own.delegate, &first);
  EXPECT_EQ(&GetMidiLinkController(), &first);
  EXPECT_THAT(server.device.TakePackets(),
              ElementsAre(AnnouncementBytes("/add_remote_destination", "Synth", 9)));
  EXPECT_EQ(Printed(), "sending /add_remote_destination: Synth || 9 \n");
  own.ToggleDestination(9);
  EXPECT_THAT(server.device.TakePackets(),
              ElementsAre(AnnouncementBytes("/remove_remote_destination", "Synth", 9)));
  own.delegate = nullptr;
  Forget();
}

}  // namespace
}  // namespace corvalint::test
