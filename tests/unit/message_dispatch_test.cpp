#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/dispatch_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Packets = std::vector<std::string>;
using Calls = FakeVirtualMidi::Calls;

class MessageDispatchTest : public DispatchFixture {};

// --- the clock

TEST_F(MessageDispatchTest, InitTimingTakesASecondReadingAndReplies) {
  clock.SetTicks(1000000);
  clock.StepPerRead(10);  // entered at 100000000 ns, read again at 100001000 ns
  Take(OscMessage("/init_timing", "h", OscInt64(1000)));
  ExpectReply(OscMessage("/init_timing", "hi", OscInt64(100000000) + OscInt32(210)));
  EXPECT_EQ(client.Clock().lastDeviceTime, 1000);
  EXPECT_EQ(client.Clock().clockOffset, 100000000);
  EXPECT_EQ(client.Clock().clockOffsetCopy, 100000000);
  EXPECT_EQ(client.Clock().midiTimeOffset, 100000000);
  EXPECT_EQ(client.Clock().initOffset, 100000000);
  EXPECT_EQ(client.Clock().initHostTime, 100001000);
}

TEST_F(MessageDispatchTest, UpdateTimingUsesTheTimeOfItsEntryAndReplies) {
  clock.SetTicks(10);
  Take(OscMessage("/init_timing", "h", OscInt64(0)));  // offset 1000 at 1000
  peer->ReceiveFrame();
  clock.SetTicks(130);
  clock.StepPerRead(10);
  Take(OscMessage("/update_timing", "h", OscInt64(10000)));  // measured 3000
  ExpectReply(OscMessage("/update_timing", "dh", OscDouble(0.0) + OscInt64(2400)));
  clock.SetTicks(230);
  Take(OscMessage("/update_timing", "h", OscInt64(20000)));  // measured 3000 again
  const double ratio = -1400.0 / 22000.0;
  ExpectReply(
      OscMessage("/update_timing", "dh", OscDouble(1.0 / (ratio + 1.0) - 1.0) + OscInt64(2820)));
  EXPECT_EQ(client.Clock().midiTimeOffset, 2568);  // 2820 * 0.7 + 1980 * 0.3
}

TEST_F(MessageDispatchTest, UpdateTimingBeforeInitTimingWorksFromZeroes) {
  clock.SetTicks(110);
  Take(OscMessage("/update_timing", "h", OscInt64(1000)));
  ExpectReply(OscMessage("/update_timing", "dh", OscDouble(0.0) + OscInt64(7000)));
}

TEST_F(MessageDispatchTest, RepliesCarryAllSixtyFourBits) {
  Take(OscMessage("/init_timing", "h", OscInt64(-kBeyond32Bits)));
  ExpectReply(OscMessage("/init_timing", "hi", OscInt64(kBeyond32Bits) + OscInt32(210)));
}

// 9300000000 * 1000000000 does not fit 63 bits.
TEST_F(MessageDispatchTest, TheHostsClockWraps) {
  clock.SetTicks(9300000000);
  Take(OscMessage("/init_timing", "h", OscInt64(0)));
  constexpr std::int64_t kWrapped = static_cast<std::int64_t>(9300000000u * 1000000000u) / 10000000;
  static_assert(kWrapped < 0);
  ExpectReply(OscMessage("/init_timing", "hi", OscInt64(kWrapped) + OscInt32(210)));
}

TEST_F(MessageDispatchTest, AReconnectionKeepsTheClock) {
  clock.SetTicks(10000);
  Take(OscMessage("/init_timing", "h", OscInt64(400)));  // offset 999600
  const auto second = client.Prepare();
  second->SendFrame(MidiMessage("Piano", 1, 5, "\xF8"));
  second->EndSending();
  peer->EndSending();
  client.RunToTheEnd();
  EXPECT_EQ(client.disconnects, 2);
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", 1, 999605, "\xF8")}));
  EXPECT_EQ(client.Clock().initHostTime, 1000000);
}

// --- endpoints

TEST_F(MessageDispatchTest, ASourceIsAddedAndRemoved) {
  Take(EndpointMessage("/add_remote_source", "Piano", 42));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"create(Piano) = 1"}));
  EXPECT_EQ(other.TakePackets(), (Packets{EndpointMessage("/add_remote_source", "Piano", 42)}));
  std::string text = console.Take();
  EXPECT_EQ(text.substr(0, text.find('\n') + 1), "receiving add_remote_source: Piano || 42\n");
  auto published = manager.PublishedEndpoints();
  ASSERT_EQ(published.size(), 1u);
  EXPECT_EQ(published[0].kind, EndpointKind::source);
  EXPECT_EQ(published[0].name, "Piano");
  EXPECT_EQ(published[0].id, 42u);

  Take(EndpointMessage("/remove_remote_source", "Piano", 42));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"close(1)"}));
  EXPECT_EQ(other.TakePackets(), (Packets{EndpointMessage("/remove_remote_source", "Piano", 42)}));
  text = console.Take();
  EXPECT_EQ(text.substr(0, text.find('\n') + 1), "receiving remove_remote_source: Piano || 42\n");
  EXPECT_TRUE(manager.PublishedEndpoints().empty());
}

TEST_F(MessageDispatchTest, ADestinationIsAddedAndRemoved) {
  Take(EndpointMessage("/add_remote_destination", "Strings", -3));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"create(Strings) = 1"}));
  EXPECT_EQ(other.TakePackets(),
            (Packets{EndpointMessage("/add_remote_destination", "Strings", -3)}));
  std::string text = console.Take();
  EXPECT_EQ(text.substr(0, text.find('\n') + 1),
            "receiving add_remote_destination: Strings || -3\n");
  auto published = manager.PublishedEndpoints();
  ASSERT_EQ(published.size(), 1u);
  EXPECT_EQ(published[0].kind, EndpointKind::destination);
  EXPECT_EQ(published[0].id, static_cast<std::uint32_t>(-3));

  Take(EndpointMessage("/remove_remote_destination", "Strings", -3));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"close(1)"}));
  EXPECT_EQ(other.TakePackets(),
            (Packets{EndpointMessage("/remove_remote_destination", "Strings", -3)}));
  text = console.Take();
  EXPECT_EQ(text.substr(0, text.find('\n') + 1),
            "receiving remove_remote_destination: Strings || -3\n");
  EXPECT_TRUE(manager.PublishedEndpoints().empty());
}

TEST_F(MessageDispatchTest, AnEndpointsIdMayBeAString) {
  Take(OscMessage("/add_remote_source", "ss", OscText("Piano") + OscText("42")));
  EXPECT_EQ(driver.TakeCalls(), (Calls{"create(Piano) = 1"}));
  const auto published = manager.PublishedEndpoints();
  ASSERT_EQ(published.size(), 1u);
  EXPECT_EQ(published[0].id, 42u);
  EXPECT_EQ(other.TakePackets(), (Packets{EndpointMessage("/add_remote_source", "Piano", 42)}));
}

TEST_F(MessageDispatchTest, NamesAreNoFormats) {
  Take(EndpointMessage("/remove_remote_source", "%s%n%d", 1));
  EXPECT_EQ(console.Take(), "receiving remove_remote_source: %s%n%d || 1\n");
}

TEST_F(MessageDispatchTest, RemovingAnUnknownEndpointOnlyPrints) {
  Take(EndpointMessage("/remove_remote_source", "Piano", 1));
  Take(EndpointMessage("/remove_remote_destination", "Piano", 1));
  EXPECT_EQ(console.Take(),
            "receiving remove_remote_source: Piano || 1\n"
            "receiving remove_remote_destination: Piano || 1\n");
  EXPECT_EQ(other.TakePackets(), (Packets{}));
}

// --- everything else

TEST_F(MessageDispatchTest, OtherAddressesAreIgnoredWithoutALine) {
  for (const char* address :
       {"/midi/", "/midix", "/mid", "/MIDI", "midi", "/midi ", "/init_timing2", "/init_timin",
        "/add_remote_sources", "/remove_remote_source/1", "/x", "/", "/*"}) {
    Take(OscMessage(address, "sihb",
                    OscText("Piano") + OscInt32(7) + OscInt64(5) + OscBlobBytes(kNote)));
  }
  EXPECT_EQ(console.Take(), "");
  EXPECT_EQ(log.Lines(), (Packets{"DEBUG BaseClientThread created"}));
  EXPECT_EQ(other.TakePackets(), (Packets{}));
  EXPECT_TRUE(peer->Silent());
}

TEST_F(MessageDispatchTest, AMissingArgumentCostsOneLine) {
  struct Case {
    const char *address, *tags;
    std::string arguments;
  };
  const Case cases[] = {
      {"/midi", "sih", OscText("Piano") + OscInt32(7) + OscInt64(5)},
      {"/init_timing", "", ""},
      {"/update_timing", "", ""},
      {"/add_remote_source", "s", OscText("Piano")},
      {"/add_remote_destination", "", ""},
      {"/remove_remote_source", "s", OscText("Piano")},
      {"/remove_remote_destination", "", ""},
  };
  for (const Case& wrong : cases) {
    Take(OscMessage(wrong.address, wrong.tags, wrong.arguments));
    EXPECT_EQ(console.Take(), "Error parsing message: missing argument\n") << wrong.address;
  }
  Take(OscText("/add_remote_source"));  // not even type tags
  EXPECT_EQ(console.Take(), "Error parsing message: missing argument\n");
  EXPECT_TRUE(peer->Silent());
}

TEST_F(MessageDispatchTest, AWrongArgumentCostsOneLine) {
  struct Case {
    const char *address, *tags;
    std::string arguments;
  };
  const Case cases[] = {
      {"/midi", "siib", OscText("Piano") + OscInt32(7) + OscInt32(5) + OscBlobBytes(kNote)},
      {"/midi", "iihb", OscInt32(7) + OscInt32(7) + OscInt64(5) + OscBlobBytes(kNote)},
      {"/midi", "sihs", OscText("Piano") + OscInt32(7) + OscInt64(5) + OscText("x")},
      {"/init_timing", "i", OscInt32(1)},
      {"/update_timing", "s", OscText("1")},
      {"/add_remote_source", "sh", OscText("Piano") + OscInt64(1)},
      {"/remove_remote_destination", "ii", OscInt32(1) + OscInt32(1)},
  };
  for (const Case& wrong : cases) {
    Take(OscMessage(wrong.address, wrong.tags, wrong.arguments));
    EXPECT_EQ(console.Take(), "Error parsing message: wrong argument type\n") << wrong.address;
  }
  EXPECT_EQ(other.TakePackets(), (Packets{}));
  EXPECT_TRUE(peer->Silent());
}

TEST_F(MessageDispatchTest, ABadArgumentLeavesTheRestOfItsBundleAlone) {
  Take(OscBundle(1, {OscMessage("/midi", "", ""), MidiMessage("Piano", 1, 5, kNote)}));
  EXPECT_EQ(console.Take(), "Error parsing message: missing argument\n");
  EXPECT_EQ(other.TakePackets(), (Packets{MidiMessage("Piano", 1, 5, kNote)}));
  EXPECT_EQ(log.Lines(), (Packets{"DEBUG BaseClientThread created", "INFO Bundle started 1",
                                  "INFO Bundle finished 1"}));
}

TEST_F(MessageDispatchTest, AMalformedMessageEndsItsBundle) {
  EXPECT_THROW(Take(OscBundle(
                   1, {OscMessage("/midi", "b", OscInt32(99)), MidiMessage("Piano", 1, 5, kNote)})),
               osc::MalformedMessageException);
  EXPECT_EQ(other.TakePackets(), (Packets{}));
  EXPECT_EQ(log.Lines(), (Packets{"DEBUG BaseClientThread created", "INFO Bundle started 1"}));
}

// The endpoint is published; only its announcement does not fit. The connection stays.
TEST_F(MessageDispatchTest, ANameThatFitsNoAnnouncementCostsOneLine) {
  const std::string name(4068, 'n');
  peer->SendFrame(EndpointMessage("/add_remote_source", name, 1));
  peer->SendFrame(OscMessage("/init_timing", "h", OscInt64(0)));
  peer->EndSending();
  client.RunToTheEnd();
  EXPECT_EQ(console.Take(), "receiving add_remote_source: " + name +
                                " || 1\nError parsing message: out of buffer memory\n"
                                "Server disconnected: 0\nFinished\n");
  EXPECT_EQ(peer->ReceiveFrame(), OscMessage("/init_timing", "hi", OscInt64(0) + OscInt32(210)));
  EXPECT_EQ(manager.PublishedEndpoints().size(), 1u);
  EXPECT_EQ(other.TakePackets(), (Packets{}));
  driver.TakeCalls();
}

}  // namespace
}  // namespace corvalint
