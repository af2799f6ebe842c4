// What the desk tells by itself: events and recorded messages.
#include "harness/desk_control.h"
#include "harness/words.h"

namespace corvalint::harness {

void DeskControl::TakeLine(std::string_view line) {
  const std::lock_guard hold(lock);
  if (line.starts_with("! ")) {
    TakeEvent(line.substr(2));
  } else if (line.size() > 2) {
    TakeRecorded(line[0], line.substr(2));
  }
  changed.notify_all();
}

void DeskControl::TakeRecorded(char kind, std::string_view rest) {
  const auto words = Words(rest);
  if (words.size() < 2) return;
  const int id = static_cast<int>(ToNumber(words[0]));
  const std::int64_t ns = ToNumber(words[1]);
  const std::string_view hex = words.size() > 2 ? words[2] : std::string_view();
  if (kind == 'o') outputMessages[id].push_back({ns, BytesFromHex(hex)});
  if (kind == 'v') portMessages[id].push_back({ns, BytesFromHex(hex)});
  if (kind == 'i') inputStamps[id].push_back(ns);
  if (kind == 'p') portStamps[id].push_back(ns);
}

void DeskControl::TakeEvent(std::string_view text) {
  events.emplace_back(text);
  const auto words = Words(text);
  const auto number = [&words](std::size_t i) { return i < words.size() ? ToNumber(words[i]) : 0; };
  const std::string_view what = words.empty() ? std::string_view() : words[0];
  if (what == "input" && words.size() > 2) {
    inputStates[static_cast<int>(number(1))] = words[2];
  } else if (what == "output" && words.size() > 2) {
    outputStates[static_cast<int>(number(1))] = words[2];
  } else if (what == "injected" || what == "played") {
    jobs[static_cast<int>(number(1))] = {static_cast<std::uint64_t>(number(2)),
                                         static_cast<std::uint64_t>(number(3))};
  } else if (what == "port" && words.size() > 5 && words[2] == "open") {
    ports.push_back({static_cast<int>(number(1)), Utf16FromHex(words[3]),
                     static_cast<int>(number(4)), static_cast<int>(number(5)), true});
  } else if (what == "port") {
    for (Port& port : ports) {
      if (port.id == number(1)) port.open = false;
    }
  } else if (what == "violation") {
    violations.emplace_back(words.size() > 1 ? text.substr(10) : text);
  } else if (what == "held" && words.size() > 1) {
    ++held[std::string(words[1])];
  } else if (what == "notified" || what == "restored") {
    ++notificationsDone;
  }
}

}  // namespace corvalint::harness
