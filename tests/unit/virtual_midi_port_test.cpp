#include "ports/virtual_midi_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "support/virtual_midi_fixture.h"

namespace corvalint {
namespace {

using test::VirtualMidiPortTest;
using ::testing::ElementsAre;

// Turns each byte of 0x80 and above into two, as a code page of several bytes a character does.
std::string WideningCodePage(const std::string& latin1) {
  std::string ansi;
  for (const char byte : latin1) {
    if (static_cast<unsigned char>(byte) >= 0x80) ansi += '?';
    ansi += byte;
  }
  return ansi;
}

TEST_F(VirtualMidiPortTest, IsMadeAtTheDriverWithItsNameAndClosedThere) {
  const auto port = VirtualMidiPort::Create("Piano", names);
  EXPECT_THAT(driver.TakeCalls(), ElementsAre("create(Piano) = 1"));
  EXPECT_EQ(driver.Created(1).name, u"Piano");
  EXPECT_EQ(driver.Created(1).maximumSysex, 65535u);
  EXPECT_EQ(driver.Created(1).flags, 1u);
  EXPECT_EQ(port->Name(), "Piano");
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
  EXPECT_EQ(port->Record(EndpointKind::destination), nullptr);

  port->AddRecord(EndpointKind::destination, "Piano", 8, "");
  const auto destination = port->Record(EndpointKind::destination);
  ASSERT_NE(destination, nullptr);
  EXPECT_EQ(destination->deviceKey, "");
  EXPECT_EQ(destination->endpointId, 8u);
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
