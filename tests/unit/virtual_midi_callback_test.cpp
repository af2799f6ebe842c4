// What a published port does with MIDI that desktop programs write into it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <stdexcept>
#include <thread>

#include "support/virtual_midi_fixture.h"

namespace corvalint {
namespace {

using test::Delivery;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using VirtualMidiCallback = test::VirtualMidiPortTest;

TEST_F(VirtualMidiCallback, PassesWhatADesktopProgramWritesToItsOwner) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 0x80000001, "");
  EXPECT_TRUE(driver.Write(1, {0x90, 60, 100}));
  EXPECT_THAT(owner.deliveries,
              ElementsAre(Delivery{{0x90, 60, 100}, "Piano", 0x80000001, 0, 1234500, "phone"}));
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiCallback, PutsItsOwnDeviceKeyInPlaceOfTheRecords) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "port's");
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

TEST_F(VirtualMidiCallback, StampsWithAClockWhoseProductWraps) {
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

TEST_F(VirtualMidiCallback, DropsWhatComesInWithoutADestination) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  driver.Write(1, {0xF8});
  port->AddRecord(EndpointKind::source, "Piano", 1, "");
  driver.Write(1, {0xF8});
  EXPECT_THAT(owner.deliveries, IsEmpty());
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiCallback, DropsWhatComesInAfterTheDestinationWasTakenOff) {
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

TEST_F(VirtualMidiCallback, DropsWhatComesInForARecordThatIsSwitchedOff) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  port->SetOwner(&owner, "phone");
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  const auto record = port->Record(EndpointKind::destination);
  record->enabled = false;
  driver.Write(1, {0xF8});
  EXPECT_THAT(owner.deliveries, IsEmpty());
  record->enabled = true;
  driver.Write(1, {0xF8});
  EXPECT_EQ(owner.deliveries.size(), 1u);
  port->Close();
  driver.TakeCalls();
}

TEST_F(VirtualMidiCallback, DropsWhatComesInWithoutAnOwner) {
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

TEST_F(VirtualMidiCallback, ACallbackBeforeTheCreationReturnsFindsNoDestination) {
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

TEST_F(VirtualMidiCallback, ACallbackAfterTheCloseFindsNothing) {
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

TEST_F(VirtualMidiCallback, ALateCallbackDoesNotReachAYoungerPort) {
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

TEST_F(VirtualMidiCallback, IsFreedWithItsLastShareOnceItIsClosed) {
  auto port = VirtualMidiPort::Create("Piano", names);
  const std::weak_ptr<VirtualMidiPort> watch = port;
  port->AddRecord(EndpointKind::destination, "Piano", 2, "");
  port->Close();
  port.reset();
  EXPECT_TRUE(watch.expired());
  driver.TakeCalls();
}

TEST_F(VirtualMidiCallback, AnExceptionOfTheReceiverStopsBeforeTheDriver) {
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

TEST_F(VirtualMidiCallback, TheCallbackHoldsNoLockOfThePortWhileTheOwnerWorks) {
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

TEST_F(VirtualMidiCallback, RecordsComeAndGoWhileTheDesktopPlays) {
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

}  // namespace
}  // namespace corvalint
