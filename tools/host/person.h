#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "host/commands.h"
#include "host/endpoints.h"
#include "host/watch.h"
#include "host/wrapper.h"

namespace corvalint::host {

// Where the answers go.
struct Output {
  // Takes whole lines in UTF-8, each with its line end.
  std::function<void(const std::string& text)> print;
  // Takes one line that says what could not be done, without its line end, and its exit code.
  std::function<void(int exitCode, const std::string& text)> complain;
  bool json = false;  // documents instead of tidy text
};

// The host as a person uses it: commands in, tidy text or documents out. One thread.
class Person {
 public:
  // The wrapper and the system outlive the object.
  Person(const Wrapper& calls, const System& hostSystem, Output answers)
      : wrapper(calls), system(hostSystem), output(std::move(answers)) {}

  // Starts the service and waits until the first scan has filled the lists, or for two and a half
  // seconds where there is nothing to find.
  void Start();

  // Carries one line out. The exit code that the program would end with; the person was told why it
  // is not 0.
  int Do(std::string_view line);

  // The same for a command given at program start: what was switched on stays on only as long as
  // the program runs, so after `on` and `toggle` it stays and watches.
  int DoAndStay(std::string_view line);

  // True once "quit" was given.
  bool Finished() const { return finished; }

 private:
  int Dispatch(const Command& command);
  void List();
  int Switch(const std::string& verb, const std::string& rest);
  int SwitchOne(bool isSource, const Endpoint& endpoint, const std::string& verb);
  void Watch(const std::string& seconds);
  void TellDevices();
  unsigned int CountDevices();
  std::unique_ptr<WatchView> OpenView();
  int Fail(int exitCode, const std::string& text);

  const Wrapper& wrapper;
  const System& system;
  Output output;
  bool finished = false;
  int deviceGrace = 1000;  // milliseconds that the first device may still take to be told of
};

}  // namespace corvalint::host
