#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace corvalint::soak {

using Random = std::mt19937_64;

// A number from 0 to `below` - 1.
inline std::uint64_t Roll(Random& random, std::uint64_t below) { return random() % below; }

// Somebody who does one thing after the other on a thread of his own, with short and with longer
// pauses, each from his own share of the seed.
class Actor {
 public:
  // `step` does one thing and says what it began through `Doing`.
  using Step = std::function<void(Random&, Actor&)>;

  // Begins at once. The longest pause is in microseconds.
  Actor(std::string actorName, std::uint64_t seed, std::uint64_t longestPause, Step actorStep);
  // Ends and joins.
  ~Actor();
  Actor(const Actor&) = delete;
  Actor& operator=(const Actor&) = delete;

  const std::string& Name() const { return name; }
  std::uint64_t Steps() const { return steps; }
  // What he is at; `what` lives as long as the program.
  void Doing(const char* what) { doing = what; }
  const char* WhatHeDoes() const { return doing; }

  void AskToEnd() { ending = true; }
  void Join();

 private:
  void Run();

  const std::string name;
  Random random;
  const std::uint64_t pause;
  const Step step;
  std::atomic<std::uint64_t> steps{0};
  std::atomic<const char*> doing{"nothing yet"};
  std::atomic<bool> ending{false};
  std::thread thread;
};

}  // namespace corvalint::soak
