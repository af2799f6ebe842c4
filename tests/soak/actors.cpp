#include "soak/actors.h"

#include <chrono>
#include <exception>
#include <utility>

#include "soak/complaints.h"

namespace corvalint::soak {

Actor::Actor(std::string actorName, std::uint64_t seed, std::uint64_t longestPause, Step actorStep)
    : name(std::move(actorName)), random(seed), pause(longestPause), step(std::move(actorStep)) {
  thread = std::thread([this] { Run(); });
}

Actor::~Actor() {
  AskToEnd();
  Join();
}

void Actor::Join() {
  if (thread.joinable()) thread.join();
}

void Actor::Run() {
  try {
    while (!ending) {
      step(random, *this);
      ++steps;
      doing = "pausing";
      // Mostly bursts, so that things meet; sometimes time for things to settle.
      if (Roll(random, 4) == 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(Roll(random, pause) + 1));
      }
    }
    doing = "ended";
  } catch (const std::exception& failure) {
    Complain("%s failed while %s: %s", name.c_str(), doing.load(), failure.what());
  }
}

}  // namespace corvalint::soak
