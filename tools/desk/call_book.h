#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace corvalint::desk {

// One call of a stand-in function, in the order in which the calls were entered.
struct CallRecord {
  std::string function;
  std::vector<std::uint64_t> arguments;
  std::string text;  // a name or other text argument, raw bytes
  std::optional<std::int64_t> result;
  std::uint32_t thread = 0;
  std::int64_t enteredNs = 0;
};

// What a test wants from coming calls of a function. Calls are counted from 1 when the rule is set.
struct CallRule {
  std::int64_t result = 0;
  bool fails = false;                          // answer `result` without doing anything
  std::uint32_t delayMs = 0;                   // sleep before the call does its work
  std::uint64_t from = 1;                      // first call concerned
  std::uint64_t times = 0;                     // number of calls concerned, 0: all
  std::int64_t untilNs = 0;                    // only calls before this time, 0: any time
  std::optional<std::uint64_t> firstArgument;  // only calls with it, which alone are counted
  std::uint64_t seen = 0;
};

// Log and script of all calls into the stand-ins. All operations may be called from any thread.
class CallBook {
 public:
  static CallBook& Get();

  // Calls wait until the test has laid out the desk. Opened at once when there is no test.
  void OpenDesk();

  // Rules.
  void AddRule(const std::string& function, CallRule rule);
  void ClearRules(const std::string& function);

  // Calls of a held function stay inside until it is released.
  void Hold(const std::string& function);
  void Release(const std::string& function);

  // Log.
  std::vector<CallRecord> Records();
  std::map<std::string, std::uint64_t> Counts();
  void ClearRecords();

  // Logs a call that neither waits for the test nor follows rules.
  void Note(const char* function, std::uint64_t argument);
  void SetMuted(const std::string& function, bool muted);  // counted, not logged

 private:
  friend class Call;
  struct Function {
    std::uint64_t count = 0;
    bool held = false;
    bool muted = false;
    std::vector<CallRule> rules;
  };

  // The ticket of the logged call, 0 if it is not logged.
  std::uint64_t Enter(CallRecord record, std::optional<std::int64_t>& scripted);
  void Leave(std::uint64_t ticket, std::int64_t result);
  void WaitUntilOpen(std::unique_lock<std::mutex>& hold);
  std::uint64_t Log(const Function& function, CallRecord record);
  static std::uint32_t Apply(Function& function, const CallRecord& record,
                             std::optional<std::int64_t>& scripted);

  std::mutex lock;
  std::condition_variable changed;
  std::map<std::string, Function> functions;
  std::deque<CallRecord> records;
  std::uint64_t firstTicket = 1;
  std::uint64_t dropped = 0;
  bool open = false;
};

// A call in progress, one on the stack of every stand-in function:
//   Call call("midiInStop", {handle});
//   if (call.Scripted()) return call.Result<MMRESULT>();
//   return call.Done(work());
class Call {
 public:
  Call(const char* function, std::initializer_list<std::uint64_t> arguments, std::string text = {});

  bool Scripted() const { return scripted.has_value(); }

  template <typename T>
  T Result() {
    return Done(static_cast<T>(scripted.value_or(0)));
  }

  template <typename T>
  T Done(T result) {
    CallBook::Get().Leave(ticket, static_cast<std::int64_t>(result));
    return result;
  }

 private:
  std::optional<std::int64_t> scripted;
  std::uint64_t ticket = 0;
};

}  // namespace corvalint::desk
