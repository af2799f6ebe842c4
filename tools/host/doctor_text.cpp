#include <algorithm>
#include <cstddef>

#include "host/doctor.h"
#include "host/json.h"

namespace corvalint::host {
namespace {

const char* StateWord(LinkState state) {
  switch (state) {
    case LinkState::kHolds:
      return "holds";
    case LinkState::kBroken:
      return "broken";
    default:
      return "unknown";
  }
}

}  // namespace

std::string LinkText(const Link& link) {
  std::string text = link.name;
  text.resize(std::max<std::size_t>(text.size() + 1, 20), ' ');
  std::string state = StateWord(link.state);
  state.resize(9, ' ');
  return state + text + link.found;
}

std::string LinkDocument(const Link& link) {
  return JsonObject()
      .String("kind", "link")
      .String("link", link.name)
      .String("state", StateWord(link.state))
      .String("found", link.found)
      .String("advice", link.advice)
      .Text();
}

std::string VerdictText(const std::optional<Link>& firstBroken) {
  if (!firstBroken) return "No link is broken.";
  return "The first broken link is " + firstBroken->name + ": " + firstBroken->found +
         "\nWhat to do: " + firstBroken->advice;
}

std::string VerdictDocument(const std::optional<Link>& firstBroken, int exitCode) {
  JsonObject document;
  document.String("kind", "verdict").Number("exit", exitCode);
  if (!firstBroken) return document.Raw("broken", "null").Text();
  return document.String("broken", firstBroken->name).String("advice", firstBroken->advice).Text();
}

}  // namespace corvalint::host
