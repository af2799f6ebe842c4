#include "ports/virtual_midi_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/clock.h"
#include "platform/process.h"
#include "support/fake_virtual_midi.h"

namespace corvalint {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What one delivery carried.
struct Delivery {
  std::vector<std::uint8_t> bytes;
  std::string name;
  std::uint32_t id;
  std::uint32_t secondWord;
  std::int64_t timestamp;
  std::string key;

  bool operator==(const Delivery&) const = default;
};

void PrintTo(const Delivery& delivery, std::ostream* out) {
  *out << delivery.bytes.size() << " bytes for " << delivery.name << " " << delivery.id << " word "
       << delivery.secondWord << " at " << delivery.timestamp << " key " << delivery.key;
}

class RecordingDelegate final : public VirtualMidiDestinationDelegate {
 public:
  void MidiReceived(const std::uint8_t* data, std::uint32_t count, std::string name,
                    std::uint32_t id, std::uint32_t secondWord, std::int64_t timestamp,
                    std::string deviceKey) override {
    deliveries.push_back({{data, data + count}, name, id, secondWord, timestamp, deviceKey});
    lastData = data;
    if (whenReceived) whenReceived();
  }

  std::vector<Delivery> deliveries;
  const std::uint8_t* lastData = nullptr;
  std::function<void()> whenReceived;
};

std::atomic<std::int64_t> ticks{0};
// Turns each byte of 0x80 and above into two, as a code page of several bytes a character does.
std::string WideningCodePage(const std::string& latin1) {
  std::string ansi;
  for (const char byte : latin1) {
    if (static_cast<unsigned char>(byte) >= 0x80) ansi += '?';
    ansi += byte;
  }
  return ansi;
}

class VirtualMidiPortTest : public ::testing::Test {
 protected:
  VirtualMidiPortTest() : clock(ClockApi::System()), process(ProcessApi::System()) {
    clock.counter = [] { return ticks.load(); };
    ticks = 12345;
    Install<ClockApi>(&clock);
  }
  ~VirtualMidiPortTest() override {
    Install<ClockApi>(nullptr);
    Install<ProcessApi>(nullptr);
  }

  ClockApi clock;
  ProcessApi process;
  test::FakeVirtualMidi driver;
  DesktopNames names;
  RecordingDelegate owner;
};

TEST_F(VirtualMidiPortTest, IsMadeAtTheDriverWithItsNameAndClosedThere) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1"));
  EXPECT_EQ(driver.Created(1).name, u"Piano");
  EXPECT_EQ(driver.Created(1).maximumSysex, 65535u);
  EXPECT_EQ(driver.Created(1).flags, 1u);
  EXPECT_EQ(port->Name(), "Piano");
  EXPECT_EQ(port->DeviceKey(), "");
  EXPECT_EQ(port->Record(EndpointKind::source), nullptr);
  EXPECT_EQ(port->Record(EndpointKind::destination), nullptr);
  port->Close();
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("close(1)"));
}

TEST_F(VirtualMidiPortTest, PublishesANameOf31BytesWhole) {
  const std::string name = "0123456789012345678901234567890";
  ASSERT_EQ(name.size(), 31u);
  EXPECT_EQ(PublishedName(name), name);
  const auto port = VirtualMidiPort::Create(name, names);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(" + name + ") = 1"));
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, CutsANameOf32BytesAfter29AndMarksItWithTwoDots) {
  const std::string name = "01234567890123456789012345678901";
  ASSERT_EQ(name.size(), 32u);
  EXPECT_EQ(PublishedName(name), "01234567890123456789012345678..");
  const auto port = VirtualMidiPort::Create(name, names);
  EXPECT_EQ(driver.Created(1).name, u"01234567890123456789012345678..");
  EXPECT_EQ(port->Name(), name);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, PublishesAnEmptyName) {
  EXPECT_EQ(PublishedName(""), "");
  const auto port = VirtualMidiPort::Create("", names);
  EXPECT_EQ(driver.Created(1).name, u"");
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, WidensEachByteOfTheNameToOneUnit) {
  const auto port = VirtualMidiPort::Create("\x7F\x80\xC3\xA9\xFF", names);
  EXPECT_EQ(driver.Created(1).name, (std::u16string{0x7F, 0x80, 0xC3, 0xA9, 0xFF}));
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, CutsTheNameByBytesAndNotByCharacters) {
  const std::string name = std::string(28, 'a') + "\xC3\xA9\xC3\xA9";
  const auto port = VirtualMidiPort::Create(name, names);
  EXPECT_EQ(driver.Created(1).name, std::u16string(28, u'a') + u'\u00C3' + u"..");
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, LivesSilentlyWithoutAHandleWhenTheDriverRefuses) {
  driver.RefusePorts(true);
  const auto port = VirtualMidiPort::Create("Piano", names);
  ASSERT_NE(port, nullptr);
  port->AddRecord(EndpointKind::source, "Piano", 7, "");
  const auto record = port->Record(EndpointKind::source);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->portHandle, nullptr);
  const std::uint8_t note[] = {0x90, 60, 100};
  port->SendData(*record, note, 3);
  port->Close();
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 0", "send(0, 90 3C 64)"));
}

TEST_F(VirtualMidiPortTest, KeepsWhatARecordIsMadeWith) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->AddRecord(EndpointKind::source, "Piano", 0xFFFFFFFF, "phone");
  const auto source = port->Record(EndpointKind::source);
  ASSERT_NE(source, nullptr);
  EXPECT_NE(source->portHandle, nullptr);
  EXPECT_TRUE(source->enabled);
  EXPECT_EQ(source->name, "Piano");
  EXPECT_EQ(source->deviceKey, "phone");
  EXPECT_EQ(source->endpointId, 0xFFFFFFFFu);
  EXPECT_EQ(source->secondWord, 0u);
  EXPECT_EQ(source->delegate, nullptr);
  EXPECT_EQ(port->Record(EndpointKind::destination), nullptr);

  port->AddRecord(EndpointKind::destination, "Piano", 8, "");
  const auto destination = port->Record(EndpointKind::destination);
  ASSERT_NE(destination, nullptr);
  EXPECT_EQ(destination->deviceKey, "");
  EXPECT_EQ(destination->endpointId, 8u);
  EXPECT_EQ(destination->delegate, port.get());
  EXPECT_EQ(port->Record(EndpointKind::source), source);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, KeepsItsFirstRecordOfAKind) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  for (const EndpointKind kind : {EndpointKind::source, EndpointKind::destination}) {
    port->AddRecord(kind, "Piano", 1, "first");
    const auto first = port->Record(kind);
    port->AddRecord(kind, "Organ", 2, "second");
    EXPECT_EQ(port->Record(kind), first);
    EXPECT_EQ(first->endpointId, 1u);
    EXPECT_EQ(first->name, "Piano");
    EXPECT_EQ(first->deviceKey, "first");
  }
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, ARecordThatIsTakenOffIsSwitchedOff) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  const auto destination = port->Record(EndpointKind::destination);
  port->RemoveRecord(EndpointKind::destination);
  EXPECT_FALSE(destination->enabled);
  EXPECT_EQ(port->Record(EndpointKind::destination), nullptr);
  EXPECT_NE(port->Record(EndpointKind::source), nullptr);
  port->RemoveRecord(EndpointKind::destination);
  port->RemoveRecord(EndpointKind::source);
  EXPECT_EQ(port->Record(EndpointKind::source), nullptr);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, WritesTheBytesAsTheyAreWhateverTheDriverAnswers) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  const auto record = port->Record(EndpointKind::source);
  const std::uint8_t odd[] = {0x3C, 0xF0, 0x90};
  driver.AnswerSendsWith(0);
  port->SendData(*record, odd, 3);
  driver.AnswerSendsWith(-1);
  port->SendData(*record, odd, 0);
  EXPECT_THAT(driver.TakeCalls(),
              ElementsAre("create(Piano) = 1", "send(1, 3C F0 90)", "send(1, )"));
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, WritesNothingOnceItIsClosing) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  const auto record = port->Record(EndpointKind::source);
  const std::uint8_t note[] = {0x90, 60, 100};
  driver.WhenClosing([&](int) { port->SendData(*record, note, 3); });
  port->Close();
  port->SendData(*record, note, 3);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1", "close(1)"));
}

TEST_F(VirtualMidiPortTest, ClosesOnlyAfterAWriteThatIsUnderWay) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  const auto record = port->Record(EndpointKind::source);
  std::thread closer;
  driver.WhenSending([&](int) {
    std::promise<void> started;
    closer = std::thread([&] {
      started.set_value();
      port->Close();
    });
    started.get_future().wait();
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
  });
  const std::uint8_t note[] = {0x90, 60, 100};
  port->SendData(*record, note, 3);
  closer.join();
  // The driver reports bytes that reach a closed port by itself.
  EXPECT_THAT(driver.TakeCalls(),
              ElementsAre("create(Piano) = 1", "send(1, 90 3C 64)", "close(1)"));
}

// --- MIDI from the desktop

TEST_F(VirtualMidiPortTest, PassesWhatADesktopProgramWritesToItsOwner) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 0x80000001, "");
  EXPECT_TRUE(driver.Write(1, {0x90, 60, 100}));
  EXPECT_THAT(owner.deliveries,
              ElementsAre(Delivery{{0x90, 60, 100}, "Piano", 0x80000001, 0, 1234500, "phone"}));
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, PutsItsOwnDeviceKeyInPlaceOfTheRecords) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "port's");
  EXPECT_EQ(port->DeviceKey(), "port's");
  port->AddRecord(EndpointKind::destination, "Piano", 1, "record's");
  driver.Write(1, {0xF8});
  const std::uint8_t byte = 0xFA;
  port->MidiReceived(&byte, 1, "Other", 5, 6, -7, "ignored");
  EXPECT_THAT(owner.deliveries, ElementsAre(Delivery{{0xF8}, "Piano", 1, 0, 1234500, "port's"},
                                            Delivery{{0xFA}, "Other", 5, 6, -7, "port's"}));
  EXPECT_EQ(owner.lastData, &byte);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, StampsWithAClockWhoseProductWraps) {
  ticks = 9223372037;
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 1, "");
  driver.Write(1, {0xF8});
  ASSERT_EQ(owner.deliveries.size(), 1u);
  EXPECT_EQ(owner.deliveries[0].timestamp, -922337203670);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, DropsWhatComesInWithoutADestination) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  driver.Write(1, {0xF8});
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  driver.Write(1, {0xF8});
  EXPECT_THAT(owner.deliveries, IsEmpty());
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, DropsWhatComesInAfterTheDestinationWasTakenOff) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  driver.Write(1, {0xF8});
  port->RemoveRecord(EndpointKind::destination);
  driver.Write(1, {0xF8});
  EXPECT_EQ(owner.deliveries.size(), 1u);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, DropsWhatComesInForARecordThatIsSwitchedOffOrHasNoDelegate) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  const auto record = port->Record(EndpointKind::destination);
  record->enabled = false;
  driver.Write(1, {0xF8});
  record->enabled = true;
  record->delegate = nullptr;
  driver.Write(1, {0xF8});
  EXPECT_THAT(owner.deliveries, IsEmpty());
  record->delegate = port.get();
  driver.Write(1, {0xF8});
  EXPECT_EQ(owner.deliveries.size(), 1u);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, DropsWhatComesInWithoutAnOwner) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  EXPECT_TRUE(driver.Write(1, {0xF8}));
  port->SetOwner(&owner, "phone");
  EXPECT_TRUE(driver.Write(1, {0xF9}));
  ASSERT_EQ(owner.deliveries.size(), 1u);
  EXPECT_EQ(owner.deliveries[0].bytes, std::vector<std::uint8_t>{0xF9});
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, ACallbackBeforeTheCreationReturnsFindsNoDestination) {
  driver.WhenCreating([&](int port) { driver.CallBack(port, {0xF8}); });
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  EXPECT_THAT(owner.deliveries, IsEmpty());
  driver.Write(1, {0xF8});
  EXPECT_EQ(owner.deliveries.size(), 1u);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, ACallbackAfterTheCloseFindsNothing) {
  auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  port->Close();
  driver.CallBack(1, {0xF8});
  port.reset();
  driver.CallBack(1, {0xF8});
  EXPECT_THAT(owner.deliveries, IsEmpty());
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, ALateCallbackDoesNotReachAYoungerPort) {
  auto old = VirtualMidiPort::Create("Piano", names);
  old->Close();
  old.reset();
  const auto young = VirtualMidiPort::Create("Piano", names);
  young->SetOwner(&owner, "phone");
  young->AddRecord(EndpointKind::destination, "Piano", 2, "");
  driver.CallBack(1, {0xF8});
  EXPECT_THAT(owner.deliveries, IsEmpty());
  driver.CallBack(2, {0xF8});
  EXPECT_EQ(owner.deliveries.size(), 1u);
  young->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, IsFreedWithItsLastShareOnceItIsClosed) {
  auto port = VirtualMidiPort::Create("Piano", names);
  const std::weak_ptr<VirtualMidiPort> watch = port;
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  port->Close();
  port.reset();
  EXPECT_TRUE(watch.expired());
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, AnExceptionOfTheReceiverStopsBeforeTheDriver) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  owner.whenReceived = [] { throw std::runtime_error("out of buffer memory"); };
  EXPECT_NO_THROW(driver.Write(1, {0xF8}));
  EXPECT_EQ(owner.deliveries.size(), 1u);
  owner.whenReceived = nullptr;
  driver.Write(1, {0xF9});
  EXPECT_EQ(owner.deliveries.size(), 2u);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, TheCallbackHoldsNoLockOfThePortWhileTheOwnerWorks) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  bool changedInTime = false;
  std::optional<std::thread> other;
  owner.whenReceived = [&] {
    std::promise<void> changed;
    auto done = changed.get_future();
    other.emplace([&, changed = std::move(changed)]() mutable {
      const std::uint8_t note[] = {0x90, 60, 100};
      port->SendData(*port->Record(EndpointKind::source), note, 3);
      port->RemoveRecord(EndpointKind::destination);
      VirtualMidiPort::Create("Organ", names)->Close();
      changed.set_value();
    });
    changedInTime = done.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  };
  driver.Write(1, {0xF8});
  other->join();
  EXPECT_TRUE(changedInTime);
  // The record is gone from the port, and what the callback carried was its own all the time.
  EXPECT_EQ(owner.deliveries[0].name, "Piano");
  port->Close();
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1", "send(1, 90 3C 64)",
                                              "create(Organ) = 2", "close(2)", "close(1)"));
}

TEST_F(VirtualMidiPortTest, RecordsComeAndGoWhileTheDesktopPlays) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  // Longer than a string keeps in itself, so that a freed name is seen to be freed.
  const std::string longName(200, 'n');
  std::atomic<bool> playing{true};
  std::thread desktop([&] {
    while (playing) driver.Write(1, {0xF8});
  });
  for (int round = 0; round < 500; ++round) {
    port->AddRecord(EndpointKind::destination, longName, 2, std::string(200, 'k'));
    std::this_thread::yield();
    port->RemoveRecord(EndpointKind::destination);
  }
  port->AddRecord(EndpointKind::destination, longName, 3, "");
  playing = false;
  desktop.join();
  driver.Write(1, {0xF8});
  ASSERT_FALSE(owner.deliveries.empty());
  for (const Delivery& delivery : owner.deliveries) {
    ASSERT_EQ(delivery.name, longName);
    ASSERT_EQ(delivery.key, "phone");
  }
  port->Close();
  driver.TakeCalls();
}

// --- what the scan of the desktop is told

TEST_F(VirtualMidiPortTest, IsKnownOnTheDesktopFromBeforeItsCreationUntilAfterItsClose) {
  const std::string shown = "01234567890123456789012345678..";
  bool atCreation = false;
  bool atClose = false;
  driver.WhenCreating([&](int) { atCreation = names.Contains(shown); });
  driver.WhenClosing([&](int) { atClose = names.Contains(shown); });
  const auto port = VirtualMidiPort::Create("01234567890123456789012345678901234", names);
  EXPECT_TRUE(atCreation);
  EXPECT_TRUE(names.Contains(shown));
  port->Close();
  EXPECT_TRUE(atClose);
  EXPECT_FALSE(names.Contains(shown));
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, IsKnownUnderTheNameThatTheCodePageMakesOfIt) {
  process.ansiFromLatin1 = WideningCodePage;
  Install<ProcessApi>(&process);
  const auto shortName = VirtualMidiPort::Create("A\xE9", names);
  EXPECT_TRUE(names.Contains("A?\xE9"));
  EXPECT_FALSE(names.Contains("A\xE9"));
  // The desktop's field has room for 31 bytes of what became longer.
  const auto longName = VirtualMidiPort::Create(std::string(20, '\xE9'), names);
  std::string field;
  for (int i = 0; i < 15; ++i) field += "?\xE9";
  field += '?';
  EXPECT_TRUE(names.Contains(field));
  shortName->Close();
  longName->Close();
  EXPECT_FALSE(names.Contains("A?\xE9"));
  EXPECT_FALSE(names.Contains(field));
  driver.TakeCalls();
}

TEST_F(VirtualMidiPortTest, IsKnownUntilItsCloseWhenTheDriverRefusedIt) {
  driver.RefusePorts(true);
  const auto port = VirtualMidiPort::Create("Piano", names);
  EXPECT_TRUE(names.Contains("Piano"));
  port->Close();
  EXPECT_FALSE(names.Contains("Piano"));
  driver.TakeCalls();
}

}  // namespace
}  // namespace corvalint
