#include <windows.h>

#include "call_book.h"
#include "clock.h"
#include "commands.h"
#include "midi_table.h"
#include "outbox.h"
#include "process_counts.h"
#include "text.h"
#include "virtual_port.h"

namespace corvalint::desk {

namespace {

// Common part of "fail" and "delay": [from=N] [times=N] [ms=N] [first=ARGUMENT]
CallRule RuleFrom(const Arguments& arguments) {
  CallRule rule;
  rule.from = static_cast<std::uint64_t>(arguments.OptionNumber("from", 1));
  rule.times = static_cast<std::uint64_t>(arguments.OptionNumber("times", 0));
  const std::int64_t forMs = arguments.OptionNumber("ms", 0);
  if (forMs != 0) rule.untilNs = NowNs() + forMs * 1'000'000;
  if (arguments.Has("first")) {
    rule.firstArgument = static_cast<std::uint64_t>(arguments.OptionNumber("first", 0));
  }
  return rule;
}

std::string Fail(const Arguments& arguments) {
  CallRule rule = RuleFrom(arguments);
  rule.fails = true;
  rule.result = arguments.Number(2);
  CallBook::Get().AddRule(std::string(arguments.Word(1)), rule);
  return {};
}

std::string Delay(const Arguments& arguments) {
  CallRule rule = RuleFrom(arguments);
  rule.delayMs = static_cast<std::uint32_t>(arguments.Number(2));
  CallBook::Get().AddRule(std::string(arguments.Word(1)), rule);
  return {};
}

// calls: FUNCTION|ARGUMENT,..|TEXT|RESULT|THREAD|NANOSECONDS for each; the result of a call that is
// still inside is "-".
std::string ListCalls(const Arguments&) {
  std::string answer;
  for (const CallRecord& record : CallBook::Get().Records()) {
    if (!answer.empty()) answer += ' ';
    answer += record.function;
    answer += '|';
    for (std::size_t i = 0; i < record.arguments.size(); ++i) {
      if (i != 0) answer += ',';
      answer += std::to_string(record.arguments[i]);
    }
    answer += '|';
    answer += HexOf(record.text);
    answer += '|';
    answer += record.result ? std::to_string(*record.result) : "-";
    answer += '|';
    answer += std::to_string(record.thread);
    answer += '|';
    answer += std::to_string(record.enteredNs);
  }
  return answer;
}

std::string CountCalls(const Arguments&) {
  std::string answer;
  for (const auto& [name, count] : CallBook::Get().Counts()) {
    if (name.starts_with("(")) continue;
    if (!answer.empty()) answer += ' ';
    answer += name + ":" + std::to_string(count);
  }
  return answer;
}

std::string Counts(const Arguments&) {
  const ProcessCounts counts = CountProcess();
  return std::to_string(counts.handles) + " " + std::to_string(counts.sockets) + " " +
         std::to_string(counts.threads) + " " + std::to_string(counts.workingSet) + " " +
         std::to_string(MidiTable::Get().OpenInputs()) + " " +
         std::to_string(MidiTable::Get().OpenOutputs()) + " " +
         std::to_string(PortTable::Get().Open().size()) + " " +
         std::to_string(Outbox::Get().Violations()) + " " + std::to_string(counts.heapBytes) + " " +
         std::to_string(counts.deskHeapBytes);
}

std::string Name(const Arguments& arguments) { return std::string(arguments.Word(1)); }

}  // namespace

void AddCallCommands(CommandTable& table) {
  table["go"] = [](const Arguments&) {
    CallBook::Get().OpenDesk();
    return std::string();
  };
  table["ping"] = [](const Arguments&) { return std::to_string(NowNs()); };
  table["about"] = [](const Arguments&) {
    return std::to_string(GetCurrentProcessId()) + " " + std::to_string(GetACP());
  };
  table["fail"] = Fail;
  table["delay"] = Delay;
  table["unfail"] = [](const Arguments& arguments) {
    CallBook::Get().ClearRules(Name(arguments));
    return std::string();
  };
  table["hold"] = [](const Arguments& arguments) {
    CallBook::Get().Hold(Name(arguments));
    return std::string();
  };
  table["release"] = [](const Arguments& arguments) {
    CallBook::Get().Release(Name(arguments));
    return std::string();
  };
  table["calls"] = ListCalls;
  table["calls-counts"] = CountCalls;
  table["calls-clear"] = [](const Arguments&) {
    CallBook::Get().ClearRecords();
    return std::string();
  };
  table["calls-mute"] = [](const Arguments& arguments) {
    CallBook::Get().SetMuted(Name(arguments), arguments.OptionNumber("muted", 1) != 0);
    return std::string();
  };
  table["counts"] = Counts;
}

}  // namespace corvalint::desk
