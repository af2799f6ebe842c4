// The library works on threads of winmm, of the port driver and of the host, whose stacks it does
// not choose. What it puts there stays far below one frame of the device stream.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "ports/desktop_names.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/osc_bytes.h"
#include "support/recording_client.h"
#include "support/test_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using namespace test;

constexpr std::size_t kSmallStack = 128 * 1024;  // the payload of the largest frame fills it
static_assert(kSmallStack <= kMaximumPayload);

void OnASmallStack(std::function<void()> work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
  pthread_t thread;
  const auto body = [](void* parameter) -> void* {
    (*static_cast<std::function<void()>*>(parameter))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, &work), 0);
  pthread_attr_destroy(&attributes);
  pthread_join(thread, nullptr);
}

class SmallStack : public testing::Test {
 protected:
  SmallStack() {
    server.clients.Append(client);
    server.clients.Append(other);
  }

  FakeClock clock;
  LogCapture log;
  ConsoleCapture console;
  TestServer server;
  DesktopNames names;
  ExternalMidiManager manager{server, server.Lock(), names};
  TestClient client{server, manager};
  std::unique_ptr<StreamPeer> peer = client.Prepare();
  RecordingClient other;
};

TEST_F(SmallStack, IsEnoughForAKeyboardsLargestMessage) {
  const std::string sysex = '\xF0' + std::string(65534, 'x') + '\xF7';
  client.OpenNow();
  OnASmallStack([&] {
    server.SendMidiToAll(reinterpret_cast<const std::uint8_t*>(sysex.data()), 65536, "Keys", 7, 5);
  });
  EXPECT_EQ(peer->ReceiveFrame(), MidiMessage("Keys", 7, 5, sysex));
}

TEST_F(SmallStack, IsEnoughForTheLargestFramesOfADevice) {
  const std::string largest = MidiMessage("Pia", 1, 5, std::string(131036, 'x'));
  ASSERT_EQ(largest.size(), kMaximumPayload);
  std::string nested = OscBundle(1, {MidiMessage("Pia", 1, 6, "y")});
  while (nested.size() + 20 <= 20000) nested = OscBundle(1, {nested});
  std::thread device([&] {
    peer->SendFrame(largest);
    peer->SendFrame(nested);
    peer->EndSending();
  });
  OnASmallStack([&] { client.RunToTheEnd(); });
  device.join();
  EXPECT_EQ(other.TakePackets(),
            (std::vector<std::string>{largest, MidiMessage("Pia", 1, 6, "y")}));
}

}  // namespace
}  // namespace corvalint
