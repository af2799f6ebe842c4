// A host in C++: waits for endpoints by name, keeps them on for a while, and switches them off.
//
//   switch_on SECONDS NAME...
//
// Exit codes: 0, 1 if a name did not appear or could not be opened, 2 for a wrong command line.
// The library prints to standard output, so this program writes to standard error.
#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "corvalint.hpp"

namespace {

using corvalint_view::Endpoint;
using corvalint_view::Side;
using corvalint_view::SwitchedOn;

// Time to plug a device in; the lists follow every five seconds.
constexpr std::chrono::seconds kLongestWait{30};
constexpr std::chrono::milliseconds kBetweenPolls{100};

struct Found {
  const Side* side;
  Endpoint endpoint;
};

// Every endpoint of that name: one device is often a source and a destination.
std::vector<Found> FindAll(const std::string& name) {
  std::vector<Found> found;
  for (const Side* side : {&corvalint_view::SourceSide(), &corvalint_view::DestinationSide()}) {
    for (const Endpoint& endpoint : corvalint_view::Endpoints(*side)) {
      if (endpoint.name == name) found.push_back({side, endpoint});
    }
  }
  return found;
}

std::vector<Found> WaitFor(const std::string& name) {
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (FindAll(name).empty()) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("there is no MIDI device " + name);
    }
    std::this_thread::sleep_for(kBetweenPolls);
  }
  // A scan may have come between the first list and the second. It has brought both their parts.
  return FindAll(name);
}

void Run(std::chrono::seconds time, const std::vector<std::string>& names) {
  corvalint_view::Start();
  std::vector<SwitchedOn> on;  // off again at the end of this function, however it ends
  for (const std::string& name : names) {
    for (const Found& found : WaitFor(name)) {
      on.emplace_back(*found.side, found.endpoint.id);
      std::cerr << "on: " << name << " (" << found.endpoint.id << ")\n";
    }
  }
  std::this_thread::sleep_for(time);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: switch_on SECONDS NAME...\n";
    return 2;
  }
  try {
    Run(std::chrono::seconds(std::atoi(argv[1])), {argv + 2, argv + argc});
    std::cerr << "all off\n";
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << "\n";
    return 1;
  }
}
