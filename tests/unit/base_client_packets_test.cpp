// What a client makes of the packets in its frames: those that cannot be read, and bundles.
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/base_client_thread_fixture.h"
#include "support/osc_bytes.h"

namespace corvalint {
namespace {

using namespace test;

using Sleeps = std::vector<std::uint32_t>;

// --- packets that cannot be read

TEST_F(BaseClientThreadTest, WhatCannotBeReadLeavesTheConnectionOpen) {
  struct Case {
    std::string payload, complaint;
  };
  const Case cases[] = {
      {OscMessage("/x", "b", OscInt32(131056)), "arguments exceed message size"},
      {OscMessage("/x", "b", OscInt32(0x7FFFFFFDu)), "invalid blob size"},
      {OscMessage("/x", "h", OscInt32(1)), "arguments exceed message size"},
      {"abcd", "unterminated address pattern"},
      {"/", "element size must be multiple of four"},  // the shortest payload of all
  };
  for (const Case& wrong : cases) {
    addresses.clear();
    RunOver(FrameOf(wrong.payload) + MessageFrame("/a"));
    EXPECT_EQ(addresses, (Lines{"/a"}));
    EXPECT_EQ(console.Take(), "Error parsing message: " + wrong.complaint + "\n" + kEnd);
  }
  EXPECT_EQ(client.disconnects, 5);  // one at the end of each stream
}

// The OSC library throws something of another family here.
TEST_F(BaseClientThreadTest, AMalformedBundleLeavesTheConnectionOpen) {
  RunOver(FrameOf("#bun") + FrameOf(OscText("#bundle") + OscInt64(1) + OscInt32(99)) +
          MessageFrame("/a"));
  EXPECT_EQ(addresses, (Lines{"/a"}));
  const std::string text = console.Take();
  EXPECT_EQ(text.rfind("Error parsing message: ", 0), 0u) << text;
  EXPECT_NE(text.find("\nError parsing message: "), std::string::npos) << text;
  EXPECT_EQ(client.disconnects, 1);
}

TEST_F(BaseClientThreadTest, WhateverADispatchThrowsCostsOneLine) {
  client.recorder = [this](const std::string& address, const RemoteEndpoint&) {
    if (address == "/full") throw osc::OutOfBufferMemoryException();
    if (address == "/memory") throw std::bad_alloc();
    addresses.push_back(address);
  };
  RunOver(MessageFrame("/full") + MessageFrame("/memory") + MessageFrame("/a"));
  EXPECT_EQ(addresses, (Lines{"/a"}));
  EXPECT_EQ(console.Take(), "Error parsing message: out of buffer memory\nError parsing message: " +
                                std::string(std::bad_alloc().what()) + "\n" + kEnd);
}

// --- bundles

TEST_F(BaseClientThreadTest, NestedBundlesAreLoggedAroundTheirMessages) {
  client.recorder = [this](const std::string& address, const RemoteEndpoint&) {
    addresses.push_back(address + " after " + std::to_string(log.Lines().size()) + " lines");
  };
  const std::string inner = OscBundle(2, {OscMessage("/b", "", ""), OscMessage("/c", "", "")});
  RunOver(FrameOf(OscBundle(1, {inner, OscMessage("/d", "", "")})));
  EXPECT_EQ(log.Lines(), (Lines{"DEBUG BaseClientThread created", "INFO Bundle started 1",
                                "INFO Bundle started 2", "INFO Bundle finished 2",
                                "INFO Bundle finished 1", "DEBUG Finished"}));
  EXPECT_EQ(addresses, (Lines{"/b after 3 lines", "/c after 3 lines", "/d after 4 lines"}));
}

TEST_F(BaseClientThreadTest, ABundleOfTheFutureIsDispatchedAtOnce) {
  RunOver(FrameOf(OscBundle(0x7000000000000000, {OscMessage("/a", "", "")})));
  EXPECT_EQ(addresses, (Lines{"/a"}));
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000}));
}

TEST_F(BaseClientThreadTest, AFrameOfNestedBundlesIsSurvived) {
  constexpr int kDepth = 6553;
  std::string packet;
  for (int left = kDepth - 1; left >= 0; --left) {
    packet += OscText("#bundle") + OscInt64(1);
    if (left > 0) packet += OscInt32(left * 20 - 4);
  }
  const auto peer = client.Prepare();
  std::thread sender([&] {
    peer->Send(FrameOf(packet) + MessageFrame("/a"));
    peer->EndSending();
  });
  client.RunToTheEnd();
  sender.join();
  EXPECT_EQ(addresses, (Lines{"/a"}));
  EXPECT_EQ(log.Count("INFO Bundle started 1"), kDepth);
  EXPECT_EQ(log.Count("INFO Bundle finished 1"), kDepth);
}

}  // namespace
}  // namespace corvalint
