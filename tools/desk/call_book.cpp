#include "call_book.h"

#include <windows.h>

#include <chrono>
#include <utility>

#include "clock.h"
#include "outbox.h"

namespace corvalint::desk {

namespace {
constexpr std::size_t kMostRecords = 200000;
constexpr std::chrono::seconds kLongestWaitForTest{30};
}  // namespace

CallBook& CallBook::Get() {
  static CallBook* book = new CallBook;
  return *book;
}

void CallBook::OpenDesk() {
  const std::lock_guard hold(lock);
  open = true;
  changed.notify_all();
}

void CallBook::AddRule(const std::string& function, CallRule rule) {
  const std::lock_guard hold(lock);
  functions[function].rules.push_back(rule);
}

void CallBook::ClearRules(const std::string& function) {
  const std::lock_guard hold(lock);
  functions[function].rules.clear();
}

void CallBook::Hold(const std::string& function) {
  const std::lock_guard hold(lock);
  functions[function].held = true;
}

void CallBook::Release(const std::string& function) {
  const std::lock_guard hold(lock);
  functions[function].held = false;
  changed.notify_all();
}

std::vector<CallRecord> CallBook::Records() {
  const std::lock_guard hold(lock);
  return {records.begin(), records.end()};
}

std::map<std::string, std::uint64_t> CallBook::Counts() {
  const std::lock_guard hold(lock);
  std::map<std::string, std::uint64_t> counts;
  for (const auto& [name, function] : functions) counts[name] = function.count;
  counts["(not logged)"] = dropped;
  return counts;
}

void CallBook::ClearRecords() {
  const std::lock_guard hold(lock);
  firstTicket += records.size();
  records.clear();
  for (auto& [name, function] : functions) function.count = 0;
  dropped = 0;
}

void CallBook::SetMuted(const std::string& function, bool muted) {
  const std::lock_guard hold(lock);
  functions[function].muted = muted;
}

void CallBook::WaitUntilOpen(std::unique_lock<std::mutex>& hold) {
  if (open) return;
  if (!changed.wait_for(hold, kLongestWaitForTest, [this] { return open; })) {
    open = true;
    Outbox::Get().Violation("the test never opened the desk");
  }
}

std::uint64_t CallBook::Log(const Function& function, CallRecord record) {
  if (function.muted) return 0;
  if (records.size() >= kMostRecords) {
    ++dropped;
    return 0;
  }
  record.enteredNs = NowNs();
  records.push_back(std::move(record));
  return firstTicket + records.size() - 1;
}

// Answers how long the call is to be delayed.
std::uint32_t CallBook::Apply(Function& function, const CallRecord& record,
                              std::optional<std::int64_t>& scripted) {
  std::uint32_t delayMs = 0;
  for (CallRule& rule : function.rules) {
    if (rule.firstArgument &&
        (record.arguments.empty() || record.arguments.front() != *rule.firstArgument)) {
      continue;
    }
    ++rule.seen;
    const bool late = rule.untilNs != 0 && NowNs() >= rule.untilNs;
    const bool over = rule.times != 0 && rule.seen >= rule.from + rule.times;
    if (rule.seen < rule.from || late || over) continue;
    delayMs += rule.delayMs;
    if (rule.fails && !scripted) scripted = rule.result;
  }
  return delayMs;
}

std::uint64_t CallBook::Enter(CallRecord record, std::optional<std::int64_t>& scripted) {
  std::unique_lock hold(lock);
  WaitUntilOpen(hold);
  Function& function = functions[record.function];
  ++function.count;
  const std::uint32_t delayMs = Apply(function, record, scripted);
  if (function.held) Outbox::Get().Event("held " + record.function);
  const std::uint64_t ticket = Log(function, std::move(record));
  changed.wait(hold, [&function] { return !function.held; });
  hold.unlock();
  if (delayMs != 0) Sleep(delayMs);
  return ticket;
}

void CallBook::Note(const char* function, std::uint64_t argument) {
  CallRecord record;
  record.function = function;
  record.arguments = {argument};
  record.result = 0;
  record.thread = GetCurrentThreadId();
  const std::lock_guard hold(lock);
  ++functions[function].count;
  Log(functions[function], std::move(record));
}

void CallBook::Leave(std::uint64_t ticket, std::int64_t result) {
  if (ticket == 0) return;
  const std::lock_guard hold(lock);
  if (ticket >= firstTicket)
    records[static_cast<std::size_t>(ticket - firstTicket)].result = result;
}

Call::Call(const char* function, std::initializer_list<std::uint64_t> arguments, std::string text) {
  CallRecord record;
  record.function = function;
  record.arguments = arguments;
  record.text = std::move(text);
  record.thread = GetCurrentThreadId();
  ticket = CallBook::Get().Enter(std::move(record), scripted);
}

}  // namespace corvalint::desk
