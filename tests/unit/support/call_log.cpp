#include "support/call_log.h"

#include <utility>

namespace corvalint::test {

void CallLog::Interleave(std::function<Calls()> source) {
  const std::lock_guard hold(mutex);
  other = std::move(source);
}

void CallLog::Add(const std::string& call) {
  const std::lock_guard hold(mutex);
  Gather();
  calls.push_back(call);
}

CallLog::Calls CallLog::Take() {
  const std::lock_guard hold(mutex);
  Gather();
  return std::exchange(calls, {});
}

void CallLog::Gather() {
  if (!other) return;
  for (std::string& entry : other()) calls.push_back(std::move(entry));
}

}  // namespace corvalint::test
