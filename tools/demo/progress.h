#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>

namespace corvalint::demo {

// What a person sees while it runs. On a terminal the line of the step in progress is written over
// and over, elsewhere it is a plain line now and then. For one thread.
class Progress {
 public:
  using Time = std::chrono::steady_clock::time_point;

  Progress(std::ostream& stream, bool isTerminal,
           std::function<Time()> clock = std::chrono::steady_clock::now);

  // A line that stays.
  void Line(const std::string& text);

  // A step of which `expected` messages are to arrive.
  void Begin(const std::string& what, std::size_t expected);
  // Whether it is time for the next Update.
  bool Due() const;
  void Update(std::size_t sent, std::size_t arrived);
  // Ends the step with a line that stays.
  void End(const std::string& result);
  // Ends the step, if there is one, and leaves no line of it half written.
  void Abandon();

 private:
  void Erase();

  std::ostream& out;
  const bool terminal;
  const std::function<Time()> now;
  std::string step;
  std::size_t total = 0;
  Time shown;
  bool open = false;  // the terminal's line holds a step
};

}  // namespace corvalint::demo
