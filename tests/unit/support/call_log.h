#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace corvalint::test {

// The calls that several fakes were given, in one order. Any thread.
class CallLog {
 public:
  using Calls = std::vector<std::string>;

  // `source` gives entries that came up elsewhere since it was last asked, the lines of a log for
  // instance. It is asked before each call is noted, so that they stand where they belong.
  void Interleave(std::function<Calls()> source);

  void Add(const std::string& call);
  // The calls since the last time, oldest first.
  Calls Take();

 private:
  void Gather();

  std::mutex mutex;
  std::function<Calls()> other;
  Calls calls;
};

}  // namespace corvalint::test
