#include "protocol/osc_listener.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/osc_bytes.h"

namespace corvalint {
namespace {

using namespace test;

// Writes down what it is told.
class Listener : public OscListener {
 public:
  using Events = std::vector<std::string>;

  // The bytes stand in a block of exactly their size, so that a sanitizer sees reads beyond them.
  void Take(const std::string& packet) {
    const std::unique_ptr<char[]> block(new char[packet.size()]);
    packet.copy(block.get(), packet.size());
    ProcessPacket(block.get(), packet.size(), {0x7F000001, 23451});
  }

  // The complaint of a packet that is refused.
  template <class Exception>
  std::string Refused(const std::string& packet) {
    try {
      Take(packet);
    } catch (const Exception& failure) {
      return failure.what();
    }
    return "nothing was thrown";
  }

  Events events;
  std::string throwAt;

 protected:
  void BundleStarted(const osc::ReceivedBundle& bundle) override {
    events.push_back("started " + std::to_string(bundle.TimeTag()));
  }
  void ProcessMessage(const osc::ReceivedMessage& message,
                      const RemoteEndpoint& endpoint) override {
    EXPECT_EQ(endpoint.address, 0x7F000001u);
    EXPECT_EQ(endpoint.port, 23451);
    events.push_back(message.AddressPattern());
    if (events.back() == throwAt) throw osc::MalformedMessageException("as asked");
  }
  void BundleFinished(const osc::ReceivedBundle& bundle) override {
    events.push_back("finished " + std::to_string(bundle.TimeTag()));
  }
};

using Events = Listener::Events;

TEST(OscListener, AMessageIsDispatched) {
  Listener listener;
  listener.Take(OscMessage("/a", "i", OscInt32(1)));
  EXPECT_EQ(listener.events, (Events{"/a"}));
}

TEST(OscListener, AnEmptyPacketIsRefused) {
  Listener listener;
  EXPECT_EQ(listener.Refused<osc::MalformedPacketException>(""),
            "zero length elements not permitted");
}

// The size is refused before a byte is read.
TEST(OscListener, APacketOfMoreThanTheLargestSizeIsRefused) {
  Listener listener;
  const auto complaint = [&](std::size_t size) -> std::string {
    try {
      listener.ProcessPacket("", size, {});
    } catch (const osc::MalformedPacketException& failure) {
      return failure.what();
    }
    return "nothing was thrown";
  };
  EXPECT_EQ(complaint(0x7FFFFFFDu), "invalid packet size");
  EXPECT_EQ(complaint(0xFFFFFFFFu), "invalid packet size");
  EXPECT_EQ(complaint(std::size_t{1} << 32), "invalid packet size");
}

TEST(OscListener, APacketOfAnOddSizeIsMalformed) {
  Listener listener;
  EXPECT_THROW(listener.Take("/a\0,\0"), osc::MalformedPacketException);
  EXPECT_THROW(listener.Take("#"), osc::MalformedPacketException);
}

TEST(OscListener, TheMessagesOfABundleComeAtOnceAndInOrder) {
  Listener listener;
  listener.Take(OscBundle(INT64_MAX, {OscMessage("/a", "", ""), OscMessage("/b", "", "")}));
  EXPECT_EQ(listener.events,
            (Events{"started 9223372036854775807", "/a", "/b", "finished 9223372036854775807"}));
}

TEST(OscListener, AnEmptyBundleStartsAndFinishes) {
  Listener listener;
  listener.Take(OscBundle(5, {}));
  EXPECT_EQ(listener.events, (Events{"started 5", "finished 5"}));
}

TEST(OscListener, BundlesNest) {
  Listener listener;
  const std::string inner = OscBundle(2, {OscMessage("/c", "", ""), OscMessage("/d", "", "")});
  listener.Take(OscBundle(1, {OscMessage("/b", "", ""), inner, OscMessage("/e", "", "")}));
  EXPECT_EQ(listener.events,
            (Events{"started 1", "/b", "started 2", "/c", "/d", "finished 2", "/e", "finished 1"}));
}

// One frame can hold this many; recursion would need more stack than a thread has.
TEST(OscListener, ThousandsOfNestedBundlesAreWalked) {
  constexpr int kDepth = 6553;
  std::string packet;
  for (int i = 0; i < kDepth; ++i) {
    packet += OscText("#bundle") + OscInt64(1);
    const int left = kDepth - 1 - i;
    if (left > 0) packet += OscInt32(static_cast<std::int32_t>(left * 20 - 4));
  }
  ASSERT_LE(packet.size(), 131072u);
  Listener listener;
  listener.Take(packet);
  ASSERT_EQ(listener.events.size(), 2u * kDepth);
  EXPECT_EQ(listener.events.front(), "started 1");
  EXPECT_EQ(listener.events[kDepth - 1], "started 1");
  EXPECT_EQ(listener.events[kDepth], "finished 1");
  EXPECT_EQ(listener.events.back(), "finished 1");
}

TEST(OscListener, ABundleWithABadHeadIsMalformed) {
  Listener listener;
  EXPECT_THROW(listener.Take("#bun"), osc::MalformedBundleException);
  EXPECT_THROW(listener.Take("#bungle\0\0\0\0\0\0\0\0\1"), osc::Exception);
  EXPECT_TRUE(listener.events.empty());
}

TEST(OscListener, AnElementBeyondTheBundleIsMalformed) {
  Listener listener;
  EXPECT_THROW(listener.Take(OscText("#bundle") + OscInt64(1) + OscInt32(64) + "abcd"),
               osc::MalformedBundleException);
}

// Such a size wraps to nothing in 32 bits and must not keep the walk in one place for ever, neither
// in a bundle nor in a bundle inside one.
TEST(OscListener, AnElementSizeThatWrapsIsMalformed) {
  const std::string endless = OscText("#bundle") + OscInt64(1) + OscInt32(-4);
  Listener listener;
  EXPECT_EQ(listener.Refused<osc::MalformedBundleException>(endless),
            "packet too short for bundle element");
  EXPECT_EQ(listener.Refused<osc::MalformedBundleException>(
                OscText("#bundle") + OscInt64(2) +
                OscInt32(static_cast<std::int32_t>(endless.size())) + endless),
            "packet too short for bundle element");
  EXPECT_EQ(listener.events, (Events{"started 2"}));
}

TEST(OscListener, AnElementWithoutBytesIsNoMessage) {
  Listener listener;
  EXPECT_THROW(listener.Take(OscBundle(1, {""})), osc::MalformedMessageException);
  EXPECT_EQ(listener.events, (Events{"started 1"}));
}

TEST(OscListener, ArgumentsAreCheckedBeforeAMessageIsDispatched) {
  Listener listener;
  EXPECT_EQ(
      listener.Refused<osc::MalformedMessageException>(OscMessage("/a", "b", OscInt32(131056))),
      "arguments exceed message size");
  EXPECT_TRUE(listener.events.empty());
}

TEST(OscListener, ArgumentsInsideABundleAreCheckedAgainstTheElement) {
  Listener listener;
  const std::string greedy = OscMessage("/b", "b", OscInt32(8));
  EXPECT_EQ(
      listener.Refused<osc::MalformedMessageException>(OscBundle(
          1, {OscMessage("/a", "", ""), greedy, OscMessage("/c", "b", OscBlobBytes("1234"))})),
      "arguments exceed message size");
  EXPECT_EQ(listener.events, (Events{"started 1", "/a"}));
}

TEST(OscListener, ABlobInsideABundleThatNoMessageCanHoldHasAnInvalidSize) {
  Listener listener;
  EXPECT_EQ(listener.Refused<osc::MalformedMessageException>(
                OscBundle(1, {OscMessage("/a", "b", OscInt32(0x7FFFFFFDu))})),
            "invalid blob size");
  EXPECT_EQ(listener.events, (Events{"started 1"}));
}

TEST(OscListener, AFailureEndsItsPacketAndLeavesTheNextOneAlone) {
  Listener listener;
  listener.throwAt = "/b";
  const std::string inner = OscBundle(2, {OscMessage("/b", "", ""), OscMessage("/c", "", "")});
  EXPECT_EQ(listener.Refused<osc::MalformedMessageException>(
                OscBundle(1, {inner, OscMessage("/d", "", "")})),
            "as asked");
  EXPECT_EQ(listener.events, (Events{"started 1", "started 2", "/b"}));

  listener.events.clear();
  listener.Take(OscBundle(3, {OscMessage("/e", "", "")}));
  EXPECT_EQ(listener.events, (Events{"started 3", "/e", "finished 3"}));
}

}  // namespace
}  // namespace corvalint
