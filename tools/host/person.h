#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "host/endpoints.h"
#include "host/wrapper.h"

namespace corvalint::host {

// The text of --help and of the command `help`.
std::string HelpText();

// The host as a person uses it: commands in, tidy text out. One thread.
class Person {
 public:
  // Takes whole lines in UTF-8, each with its line end.
  using Print = std::function<void(const std::string& text)>;

  // The wrapper and the system outlive the object.
  Person(const Wrapper& calls, const System& hostSystem, Print printText)
      : wrapper(calls), system(hostSystem), print(std::move(printText)) {}

  // Starts the service and waits until the first scan has filled the lists, or for a second and a
  // half on a machine where there is nothing to find.
  void Start();

  // Carries one line out. False if it could not be done; the person was told why.
  bool Do(std::string_view line);

  // The same for a command given at program start: what was switched on stays on only as long as
  // the program runs, so after `on` and `toggle` it stays and watches.
  bool DoAndStay(std::string_view line);

  // True once "quit" was given.
  bool Finished() const { return finished; }

 private:
  bool Dispatch(const std::string& verb, const std::string& rest);
  bool Switch(const std::string& verb, const std::string& rest);
  bool SwitchOne(const SideCalls& calls, std::string_view side, const Endpoint& endpoint,
                 const std::string& verb);
  bool Watch(const std::string& seconds);
  void PrintNow(const std::string& line);

  const Wrapper& wrapper;
  const System& system;
  Print print;
  bool finished = false;
};

}  // namespace corvalint::host
