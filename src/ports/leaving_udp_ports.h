#pragma once

#include <cstdint>

namespace corvalint {

// UDP port numbers whose LocalOSCPort was stopped and whose socket is not closed yet: its own
// thread closes it a moment later. A port that a device opens again right after removing it waits
// that long, since its bind would fail and, by the rules of bind, never be tried again. Any thread.
void NoteLeaving(std::uint16_t udpPort);
void NoteLeft(std::uint16_t udpPort);
bool IsLeaving(std::uint16_t udpPort);

}  // namespace corvalint
