#pragma once

#include <string>

#include "windows/support/osc_ports.h"
#include "windows/support/two_devices.h"

namespace corvalint::windows_test {

inline constexpr const char* kLoopback = "127.0.0.1";
inline constexpr const char* kReportAddress = "/osc/port_creation_report";
inline constexpr std::size_t kLongestDatagram = 65507;

// Two devices that stay, of which the first one opens ports. Each test closes those it opened.
class OscTwoDevices : public TwoDevices {
 protected:
  bool Send(const device::Bytes& packet) { return a->App().SendPacket(packet); }

  // Expects that the threads of so many ports have ended, and that nothing else was printed.
  void ExpectEnded(std::size_t ports) {
    std::string lines;
    for (std::size_t i = 0; i < ports; ++i) lines += "Finished\n";
    EXPECT_EQ(console.After(lines), lines);
  }
};

}  // namespace corvalint::windows_test
