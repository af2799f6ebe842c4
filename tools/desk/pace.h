#pragma once

#include <windows.h>

#include <cstdint>

#include "clock.h"
#include "worker.h"

namespace corvalint::desk {

// Keeps the steps of a task apart without spinning: steps that fall into one millisecond of the
// system's timer come together.
class Pace {
 public:
  explicit Pace(std::int64_t stepUs) : stepNs(stepUs * 1000), nextNs(NowNs()) {}

  // Waits for the time of the next step. False if the worker is being stopped.
  bool Next(const Worker& worker) {
    while (stepNs > 0 && nextNs - NowNs() > 500'000 && !worker.Stopping()) Sleep(1);
    nextNs += stepNs;
    return !worker.Stopping();
  }

 private:
  const std::int64_t stepNs;
  std::int64_t nextNs;
};

}  // namespace corvalint::desk
