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
  std::int32_t id = 0;
  std::string nameBytes;  // As the library gives them, in the ANSI code page.
  std::string name;       // The same in UTF-8.
  bool on = false;
  bool available = false;

  bool operator==(const Endpoint&) const = default;
};

// Walks one list, in its order. An endpoint that comes or goes meanwhile makes the walk start
// again. After a few such starts the last walk counts, and the library's std::out_of_range in it
// reaches the caller.
std::vector<Endpoint> ReadEndpoints(const SideCalls& calls, const System& system);

// Both lists.
struct Listing {
  std::vector<Endpoint> sources;
  std::vector<Endpoint> destinations;
};

// Both lists at one moment, unless they keep changing; throws as ReadEndpoints.
Listing ReadListing(const Wrapper& wrapper, const System& system);

// The endpoints that the text names: those with the id, if it is a number and there are any, else
// those with exactly that name.
std::vector<Endpoint> FindEndpoints(const std::vector<Endpoint>& endpoints, std::string_view text);

enum class ChangeKind { kCame, kWent, kOn, kOff, kAvailable, kUnavailable };

// One difference between two looks at a list.
struct Change {
  ChangeKind kind = ChangeKind::kCame;
  std::string side;  // "source" or "destination"
  Endpoint endpoint;
};

// Adds the differences between two looks at one list, departures first.
void AddChanges(std::vector<Change>& changes, std::string_view side,
                const std::vector<Endpoint>& before, const std::vector<Endpoint>& after);

// `source "Keys" is on` and the like, without a line end.
std::string ChangeText(const Change& change);

// A table of both lists, each line with its line end. `columns` is the width of the terminal, 0 for
// no limit; in a narrow one each endpoint takes two lines, and no name is cut.
std::string FormatListing(const Listing& listing, int columns);

}  // namespace corvalint::host
