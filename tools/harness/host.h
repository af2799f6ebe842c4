#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/process.h"

namespace corvalint::harness {

using Json = nlohmann::json;

// One line of the host's endpoint lists.
struct Endpoint {
  std::int64_t position = 0;
  std::int32_t id = 0;
  std::string name;  // bytes as the product gives them
  bool on = false;
  bool available = false;
};

// The console host in its script mode: commands by its standard input, answers as JSON lines on its
// standard error, the product's own console lines on its standard output. Operations that ask throw
// std::runtime_error if the host does not answer in time or its answer is no such thing. One
// command runs at a time; callers on other threads wait for their turn.
class Host {
 public:
  explicit Host(const Process::Setup& setup);

  // The host's first line.
  bool WaitUntilReady(std::chrono::milliseconds limit = kPatience);

  // Sends one command line and gives the answer to it.
  Json Ask(const std::string& command, std::chrono::milliseconds limit = kPatience);

  std::vector<Endpoint> Sources();
  std::vector<Endpoint> Destinations();
  // By the bytes of its name; waits until there is one.
  std::optional<Endpoint> WaitForSource(std::string_view name,
                                        std::chrono::milliseconds limit = kPatience);
  std::optional<Endpoint> WaitForDestination(std::string_view name,
                                             std::chrono::milliseconds limit = kPatience);
  Json ToggleSource(std::int32_t id);
  Json ToggleDestination(std::int32_t id);
  std::int64_t Clients();
  bool WaitForClients(std::int64_t count, std::chrono::milliseconds limit = kPatience);

  // The product's console lines so far, byte for byte as written.
  std::string Console();
  bool WaitForConsole(std::string_view text, std::chrono::milliseconds limit = kPatience);

  // Lines on standard error that are no JSON.
  std::string Notes();

  // Asks it to end and waits; the exit code, or nothing if it does not end.
  std::optional<int> Quit(std::chrono::milliseconds limit = kPatience);
  bool Running() { return process.Running(); }
  Process& GetProcess() { return process; }

 private:
  std::vector<Endpoint> List(const std::string& which);
  std::optional<Endpoint> WaitForEndpoint(const std::string& which, std::string_view name,
                                          std::chrono::milliseconds limit);

  std::mutex turn;
  bool ready = false;
  std::size_t answersAt = 0;  // where in the errors the next answer is looked for
  Process process;
};

}  // namespace corvalint::harness
