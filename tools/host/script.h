#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/wrapper.h"

namespace corvalint::host {

// The host as a script drives it: a line in, one line of JSON out. One thread.
class Script {
 public:
  // Both outlive the object.
  Script(const Wrapper& calls, const System& hostSystem) : wrapper(calls), system(hostSystem) {}

  // Starts the service and counts the start.
  void Start();

  // The line that says the host listens.
  std::string ReadyLine() const;

  // Carries the command out. The result has no line end. Failures of any kind are an object with
  // "error"; nothing is thrown.
  std::string Answer(std::string_view line);

  // True once "quit" was answered.
  bool Finished() const { return finished; }

 private:
  std::string Dispatch(const std::string& verb, const std::vector<std::string>& words);
  std::string AnswerStart(bool again);
  std::string AnswerFixed(const std::vector<std::string>& words) const;
  std::string AnswerHandles() const;
  std::string AnswerSide(const std::string& verb, const std::vector<std::string>& words) const;

  const Wrapper& wrapper;
  const System& system;
  int starts = 0;
  bool finished = false;
};

}  // namespace corvalint::host
