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
  using Words = std::vector<std::string>;
  struct Verb;
  template <SideCalls Wrapper::*side>
  struct SideVerbs;

  std::string Dispatch(const std::string& name, const Words& words);
  static std::string AnswerStart(Script& script, const Words& words);
  static std::string AnswerStartAgain(Script& script, const Words& words);
  static std::string AnswerClients(Script& script, const Words& words);
  static std::string AnswerFixed(Script& script, const Words& words);
  static std::string AnswerHandles(Script& script, const Words& words);
  static std::string AnswerQuit(Script& script, const Words& words);

  const Wrapper& wrapper;
  const System& system;
  int starts = 0;
  bool finished = false;
};

}  // namespace corvalint::host
