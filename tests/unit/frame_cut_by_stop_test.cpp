// A client that is stopped in the middle of a frame takes it as it stands. What did not come counts
// as zeroes, and not as what an earlier frame left at its place.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/base_client_thread_fixture.h"

namespace corvalint {
namespace {

using namespace test;

class FrameCutByStop : public BaseClientThreadTest {
 protected:
  FrameCutByStop() { client.recorder = nullptr; }  // the messages are dispatched

  // A frame as large as can be and full of ones comes first, then one that lacks its last bytes;
  // the stop comes with them. The run is on the test's own thread, which therefore sends, too:
  // a piece whenever the client is about to wait.
  void RunOverCut(const std::string& packet, std::size_t lacking) {
    const std::string large = FrameOf(std::string(131072, '\xFF'), 7);  // a kind that is dropped
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < large.size(); at += 8192) {
      pieces.push_back(large.substr(at, 8192));
    }
    const std::string cut = FrameOf(packet);
    pieces.push_back(cut.substr(0, 20));
    pieces.push_back(cut.substr(20, cut.size() - lacking - 20));
    const std::unique_ptr<StreamPeer> peer = client.Prepare();
    auto next = pieces.begin();
    sockets.BeforeWait([&] {
      peer->Send(*next++);
      if (next == pieces.end()) client.ClearRunning();
    });
    client.RunToTheEnd();
    EXPECT_EQ(next, pieces.end());
    EXPECT_EQ(client.disconnects, 0);
  }
};

TEST_F(FrameCutByStop, ASmallOneEndsInZeroes) {
  RunOverCut(EndpointMessage("/remove_remote_source", "Piano", 0x01020304), 4);
  EXPECT_EQ(console.Take(), "receiving remove_remote_source: Piano || 0\nFinished\n");
}

// What is there of it stays where it is; a smaller one moves.
TEST_F(FrameCutByStop, ALargeOneEndsInZeroes) {
  const std::string name(1000, 'n');
  RunOverCut(EndpointMessage("/remove_remote_source", name, 0x01020304), 4);
  EXPECT_EQ(console.Take(), "receiving remove_remote_source: " + name + " || 0\nFinished\n");
}

}  // namespace
}  // namespace corvalint
