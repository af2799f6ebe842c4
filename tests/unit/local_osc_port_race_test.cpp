// The device's thread works with its OSC ports while another one disconnects the device.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/osc_port_fixture.h"

namespace corvalint {
namespace {

using namespace test;

class LocalOSCPortRace : public OscPortFixture {};

// Whatever is still open at the end, or was used after its end, fails the fixture or a sanitizer.
TEST_F(LocalOSCPortRace, PortsComeAndGoWhileTheTableIsEmptiedAndShut) {
  constexpr int kEmptied = 50;
  testing::internal::CaptureStderr();  // a send through a port that is not open yet costs a line
  std::atomic<bool> ends{false};
  std::thread disconnecting([&] {
    for (int emptied = 0; emptied < kEmptied; std::this_thread::yield()) {
      if (table->Count() > 0) ++emptied;
      table->RemoveAll();
    }
    table->Shut();
    table->RemoveAll();
  });
  std::thread sending([&] {
    const std::string key = Key(program.Port());
    for (; !ends; std::this_thread::yield()) {
      if (const auto port = table->Find(key)) port->SendToDestination("x", 1);
    }
  });
  for (int i = 0; table->CreatePort(program.Port(), 0, "127.0.0.1") != nullptr; ++i) {
    if (i % 3 == 0) table->RemovePort(Key(program.Port()));
    std::this_thread::yield();
  }
  disconnecting.join();
  ends = true;
  sending.join();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(table->Count(), 0u) << "a port that nobody would stop";
}

}  // namespace
}  // namespace corvalint
