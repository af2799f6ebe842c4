#include "ports/leaving_udp_ports.h"

#include <array>
#include <atomic>

namespace corvalint {

namespace {

// How many ports of each number are leaving: two devices may name the same one.
std::array<std::atomic<std::uint16_t>, 65536> leaving{};

}  // namespace

void NoteLeaving(std::uint16_t udpPort) { ++leaving[udpPort]; }

void NoteLeft(std::uint16_t udpPort) { --leaving[udpPort]; }

bool IsLeaving(std::uint16_t udpPort) { return leaving[udpPort] != 0; }

}  // namespace corvalint
