// What the product calls of the stand-ins, and what a test wants from those calls.
#include <charconv>
#include <thread>

#include "harness/desk_control.h"
#include "harness/words.h"

namespace corvalint::harness {

namespace {

std::string RangeText(const CallRange& range) {
  std::string text = " from=" + std::to_string(range.from) +
                     " times=" + std::to_string(range.times) + " ms=" + std::to_string(range.forMs);
  if (range.firstArgument) text += " first=" + std::to_string(*range.firstArgument);
  return text;
}

CallEntry EntryFrom(std::string_view text) {
  const auto parts = Words(text, '|');
  CallEntry entry;
  if (parts.size() != 6) return entry;
  entry.function = parts[0];
  for (const auto argument : Words(parts[1], ',')) {
    std::uint64_t value = 0;
    std::from_chars(argument.data(), argument.data() + argument.size(), value);
    entry.arguments.push_back(value);
  }
  const Bytes bytes = BytesFromHex(parts[2]);
  entry.text.assign(bytes.begin(), bytes.end());
  if (parts[3] != "-") entry.result = ToNumber(parts[3]);
  entry.thread = static_cast<std::uint32_t>(ToNumber(parts[4]));
  entry.ns = ToNumber(parts[5]);
  return entry;
}

}  // namespace

void DeskControl::Fail(const std::string& function, std::int64_t result, const CallRange& range) {
  Send("fail " + function + " " + std::to_string(result) + RangeText(range));
}

void DeskControl::Delay(const std::string& function, std::uint32_t ms, const CallRange& range) {
  Send("delay " + function + " " + std::to_string(ms) + RangeText(range));
}

void DeskControl::ClearRules(const std::string& function) { Send("unfail " + function); }

void DeskControl::Hold(const std::string& function) { Send("hold " + function); }

void DeskControl::Release(const std::string& function) { Send("release " + function); }

std::vector<CallEntry> DeskControl::Calls() {
  std::vector<CallEntry> entries;
  const std::string answer = Send("calls");
  for (const auto text : Words(answer)) entries.push_back(EntryFrom(text));
  return entries;
}

std::vector<std::string> DeskControl::CallNames() {
  std::vector<std::string> names;
  for (const CallEntry& entry : Calls()) names.push_back(entry.function);
  return names;
}

std::map<std::string, std::uint64_t> DeskControl::CallCounts() {
  std::map<std::string, std::uint64_t> counts;
  const std::string answer = Send("calls-counts");
  for (const auto text : Words(answer)) {
    const std::size_t colon = text.rfind(':');
    counts[std::string(text.substr(0, colon))] =
        static_cast<std::uint64_t>(ToNumber(text.substr(colon + 1)));
  }
  return counts;
}

bool DeskControl::WaitForCall(const std::string& function, std::uint64_t count,
                              std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kBetweenLooks{5};
  const auto end = std::chrono::steady_clock::now() + limit;
  while (CallCounts()[function] < count) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

void DeskControl::ClearCalls() { Send("calls-clear"); }

void DeskControl::Mute(const std::string& function) { Send("calls-mute " + function); }

}  // namespace corvalint::harness
