// Loopback OSC ports of the shipped DLL that come and go by request: afterwards the process holds
// what it held before. The number of each tenth one is taken.
#include <gtest/gtest.h>

#include "windows/support/osc_leaks.h"
#include "windows/support/osc_ports.h"
#include "windows/support/serving.h"
#include "windows/support/wire_bytes.h"

namespace corvalint::windows_test {
namespace {

TEST(OscEndurance, AThousandPortsOpenedUsedAndClosedLeaveNothingBehind) {
  constexpr std::size_t kStretch = 200;  // the first one makes what stays
  constexpr std::size_t kStretches = 6;
  Bridge bridge({"Keys"}, {"Synth"});
  const auto app = bridge.Plug("device-a");
  const UdpProgram holder;  // has the number of the first port
  std::vector<std::unique_ptr<OscPort>> ports;
  ports.push_back(std::make_unique<OscPort>(*app, holder.Port()));
  for (int i = 1; i < 10; ++i) ports.push_back(std::make_unique<OscPort>(*app));
  EndedThreads threads(bridge);
  std::vector<harness::ProcessCounts> counts;
  for (std::size_t cycle = 1; cycle <= kStretch * kStretches; ++cycle) {
    app->App().Record().Clear();
    OscPort& port = *ports[cycle % ports.size()];
    ASSERT_TRUE(port.Create()) << cycle;
    ASSERT_TRUE(port.ToProgram(BigEndian(cycle, 8))) << cycle;
    if (port.Bind() == holder.Port()) {
      ASSERT_TRUE(app->App().SendPacket(port.RemoveRequest())) << cycle;
      ASSERT_TRUE(WaitForUdpSockets(port.Program().LastSender(), 0)) << cycle;
    } else {
      ASSERT_TRUE(port.ToDevice(BigEndian(cycle, 4))) << cycle;
      ASSERT_TRUE(port.Remove()) << cycle;
    }
    if (cycle % kStretch == 0) counts.push_back(SettledCounts(bridge, threads, cycle));
  }
  ExpectNothingLeft("1000 ports opened and closed", counts);
  ExpectClean(bridge, {app.get()});
}

}  // namespace
}  // namespace corvalint::windows_test
