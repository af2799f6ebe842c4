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

std::uint64_t CallBook::Enter(CallRecord record, std::optional<std::int64_t>& scripted) {
  std::unique_lock hold(lock);
  WaitUntilOpen(hold);
  Function& function = functions[record.function];
  ++function.count;
  if (function.held) {
    Outbox::Get().Event("held " + record.function);
    changed.wait(hold, [&function] { return !function.held; });
  }
  std::uint32_t delayMs = 0;
  for (CallRule& rule : function.rules) {
    ++rule.seen;
    const bool late = rule.untilNs != 0 && NowNs() >= rule.untilNs;
    const bool over = rule.times != 0 && rule.seen >= rule.from + rule.times;
    if (rule.seen < rule.from || late || over) continue;
    delayMs += rule.delayMs;
    if (rule.fails && !scripted) scripted = rule.result;
  }
  std::uint64_t ticket = 0;
  if (function.muted || records.size() >= kMostRecords) {
    if (!function.muted) ++dropped;
  } else {
    record.enteredNs = NowNs();
    records.push_back(std::move(record));
    ticket = firstTicket + records.size() - 1;
  }
  hold.unlock();
  if (delayMs != 0) Sleep(delayMs);
  return ticket;
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
