#pragma once

#include <atomic>
#include <cstdint>

#include "service/cthread.h"

namespace corvalint {

// Keeps the service's loop going; set when it starts, never cleared by the library.
extern std::atomic<bool> ServiceRunning;

// Makes the server of USB devices, starts it, and then scans the desktop's MIDI devices every five
// seconds for as long as ServiceRunning is set.
void RunService();

// The thread that runs the service. Once it has its thread it is never destroyed.
class ServiceThread final : public CThread {
 public:
  std::uint32_t Run() override;
};

}  // namespace corvalint
