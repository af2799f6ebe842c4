#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/commands.h"
#include "host/wrapper.h"

namespace corvalint::host {

// What the library says about one endpoint at one moment.
struct Endpoint {
  int32_t id = 0;
  std::string nameBytes;  // As the library gives them, in the ANSI code page.
  std::string name;       // The same in UTF-8.
  bool on = false;
  bool available = false;

  bool operator==(const Endpoint&) const = default;
};

// Walks one list. An endpoint that vanishes meanwhile makes the walk start again; after a few such
// starts std::out_of_range of the library reaches the caller.
std::vector<Endpoint> ReadEndpoints(const SideCalls& calls, const System& system);

// Both lists at one moment.
struct Listing {
  std::vector<Endpoint> sources;
  std::vector<Endpoint> destinations;
};

Listing ReadListing(const Wrapper& wrapper, const System& system);

// The endpoints that the text names: those with the id, if it is a number and there are any, else
// those with exactly that name.
std::vector<Endpoint> FindEndpoints(const std::vector<Endpoint>& endpoints, std::string_view text);

// One line for each difference, such as `source "Keys" is on`, without line ends.
std::vector<std::string> DescribeChanges(std::string_view side, const std::vector<Endpoint>& before,
                                         const std::vector<Endpoint>& after);

// A table of both lists for a person, each line with its line end.
std::string FormatListing(const Listing& listing);

}  // namespace corvalint::host
