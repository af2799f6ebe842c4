// Frames go out and come in without the heap: a busy desktop must not make music late.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "ports/desktop_names.h"
#include "protocol/device_stream.h"
#include "support/allocation_count.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/osc_bytes.h"
#include "support/stream_peer.h"
#include "support/test_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using namespace test;

TEST(AllocationCount, SeesWhatIsTakenFromTheHeap) {
  const int before = allocations;
  const std::vector<char> block(100000, 'x');
  EXPECT_EQ(allocations, before + 1) << block.size();
}

// From the first byte until the device's unread frames are dropped.
TEST(FrameAllocation, SendingTakesNothingFromTheHeap) {
  StreamPair pair = MakeStreamPair(4096);
  SocketApi::System().setNonBlocking(pair.library);
  DeviceStream stream;
  stream.Open(pair.library);
  const std::string large(100000, 'x');
  const int before = allocations;
  EXPECT_EQ(stream.Send("small", 5), 17);
  int sent = 0;
  while (stream.Send(large.data(), 100000) > 0) ++sent;
  EXPECT_EQ(stream.Send(large.data(), 100000), -1);
  EXPECT_EQ(stream.Send("small", 5), 17);
  EXPECT_EQ(allocations, before);
  EXPECT_GE(sent, 10);  // a mebibyte is kept
}

TEST(FrameAllocation, ReceivingTakesNothingFromTheHeap) {
  FakeClock clock;
  ConsoleCapture console;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager(server, server.Lock(), names);
  TestClient client(server, manager);
  constexpr std::size_t kMessages = 20;
  std::array<int, kMessages> counts{};
  std::size_t messages = 0;
  client.recorder = [&](const std::string&, const RemoteEndpoint&) {
    if (messages < kMessages) counts[messages] = allocations;
    ++messages;
  };
  const auto peer = client.Prepare();
  std::thread device([&] {
    const std::string small = OscMessage("/a", "i", OscInt32(1));
    const std::string large = OscMessage("/b", "b", OscBlobBytes(std::string(131000, 'x')));
    for (std::size_t i = 0; i < kMessages; i += 2) {
      peer->SendFrame(small);
      peer->SendFrame("of another kind", 1);
      peer->SendFrame(large);
    }
    peer->EndSending();
  });
  client.RunToTheEnd();
  device.join();
  ASSERT_EQ(messages, kMessages);
  EXPECT_EQ(counts.back(), counts.front());
}

}  // namespace
}  // namespace corvalint
