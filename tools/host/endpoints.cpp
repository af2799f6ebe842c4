#include "host/endpoints.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <optional>
#include <stdexcept>

namespace corvalint::host {
namespace {

constexpr int kWalkAttempts = 5;

// A scan may take any number of endpoints out meanwhile. The walk goes towards the first position,
// as those do that stay, and asks for the count again right before each position.
std::vector<std::int32_t> ReadIds(const SideCalls& calls) {
  std::vector<std::int32_t> ids;
  for (auto position = static_cast<int>(calls.count()); position-- > 0;) {
    if (position >= calls.count()) continue;
    const std::int32_t id = calls.idAt(position);
    if (std::ranges::find(ids, id) == ids.end()) ids.push_back(id);
  }
  std::ranges::reverse(ids);
  return ids;
}

std::string ReadName(const SideCalls& calls, std::int32_t id) {
  std::string name;
  const std::int64_t length = calls.nameLength(id);
  for (int position = 0; position < length; ++position) name += calls.nameByte(id, position);
  return name;
}

Endpoint ReadEndpoint(const SideCalls& calls, const System& system, std::int32_t id) {
  Endpoint endpoint;
  endpoint.id = id;
  endpoint.nameBytes = ReadName(calls, id);
  endpoint.name = system.ansiToUtf8(endpoint.nameBytes);
  endpoint.on = calls.status(id) != 0;
  endpoint.available = calls.available(id) != 0;
  return endpoint;
}

// True if the list was the same before and after its endpoints were asked. An endpoint that went in
// between would otherwise show up with an empty name.
bool WalkOnce(const SideCalls& calls, const System& system, std::vector<Endpoint>& endpoints) {
  const std::vector<std::int32_t> ids = ReadIds(calls);
  endpoints.clear();
  for (std::int32_t id : ids) endpoints.push_back(ReadEndpoint(calls, system, id));
  return ids == ReadIds(calls);
}

// False too if the list changes during the question.
bool HasTheseStill(const SideCalls& calls, const std::vector<Endpoint>& endpoints) {
  try {
    return std::ranges::equal(ReadIds(calls), endpoints, {}, {}, &Endpoint::id);
  } catch (const std::out_of_range&) {
    return false;
  }
}

const Endpoint* FindId(const std::vector<Endpoint>& endpoints, std::int32_t id) {
  const auto found = std::ranges::find(endpoints, id, &Endpoint::id);
  return found == endpoints.end() ? nullptr : &*found;
}

// The columns before the name in the wide table.
constexpr int kBeforeName = 33;
constexpr int kNameInTable = 15;

void FormatSide(std::string& text, const char* title, const std::vector<Endpoint>& endpoints,
                bool narrow) {
  text += title;
  text += endpoints.empty() ? ": none\n" : "\n";
  for (const Endpoint& endpoint : endpoints) {
    char columns[64];
    if (narrow) {
      std::snprintf(columns, sizeof columns, "  %d %s%s", endpoint.id, endpoint.on ? "on" : "off",
                    endpoint.available ? "" : " !");
      text += " " + endpoint.name + "\n" + columns + "\n";
    } else {
      std::snprintf(columns, sizeof columns, "  %11d  %-3s  %-11s  ", endpoint.id,
                    endpoint.on ? "on" : "off", endpoint.available ? "available" : "unavailable");
      text += columns + endpoint.name + "\n";
    }
  }
}

}  // namespace

std::vector<Endpoint> ReadEndpoints(const SideCalls& calls, const System& system) {
  std::vector<Endpoint> endpoints;
  for (int attempt = 1;; ++attempt) {
    try {
      if (WalkOnce(calls, system, endpoints) || attempt == kWalkAttempts) return endpoints;
    } catch (const std::out_of_range&) {
      if (attempt == kWalkAttempts) throw;
    }
  }
}

// A scan between the two walks shows in the sources.
Listing ReadListing(const Wrapper& wrapper, const System& system) {
  Listing listing;
  for (int attempt = 0; attempt < kWalkAttempts; ++attempt) {
    listing.sources = ReadEndpoints(wrapper.sources, system);
    listing.destinations = ReadEndpoints(wrapper.destinations, system);
    if (HasTheseStill(wrapper.sources, listing.sources)) break;
  }
  return listing;
}

std::vector<Endpoint> FindEndpoints(const std::vector<Endpoint>& endpoints, std::string_view text) {
  if (std::optional<std::int32_t> id = ParseInt32(text)) {
    if (const Endpoint* endpoint = FindId(endpoints, *id)) return {*endpoint};
  }
  std::vector<Endpoint> found;
  std::ranges::copy_if(endpoints, std::back_inserter(found),
                       [&](const Endpoint& endpoint) { return endpoint.name == text; });
  return found;
}

void AddChanges(std::vector<Change>& changes, std::string_view side,
                const std::vector<Endpoint>& before, const std::vector<Endpoint>& after) {
  const auto add = [&](ChangeKind kind, const Endpoint& endpoint) {
    changes.push_back({kind, std::string(side), endpoint});
  };
  for (const Endpoint& old : before) {
    if (FindId(after, old.id) == nullptr) add(ChangeKind::kWent, old);
  }
  for (const Endpoint& now : after) {
    const Endpoint* const old = FindId(before, now.id);
    if (old == nullptr) add(ChangeKind::kCame, now);
    if (now.on != (old != nullptr && old->on)) {
      add(now.on ? ChangeKind::kOn : ChangeKind::kOff, now);
    }
    if (now.available != (old == nullptr || old->available)) {
      add(now.available ? ChangeKind::kAvailable : ChangeKind::kUnavailable, now);
    }
  }
}

std::string ChangeText(const Change& change) {
  static const char* const kTexts[] = {
      "came", "went", "is on", "is off", "is available again", "could not be opened"};
  return change.side + " \"" + change.endpoint.name + "\" " +
         kTexts[static_cast<std::size_t>(change.kind)];
}

std::string FormatListing(const Listing& listing, int columns) {
  const bool narrow = columns > 0 && columns < kBeforeName + kNameInTable;
  std::string text;
  FormatSide(text, "Sources", listing.sources, narrow);
  FormatSide(text, "Destinations", listing.destinations, narrow);
  return text;
}

}  // namespace corvalint::host
