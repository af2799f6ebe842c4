#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace corvalint::bench {

// What was seen of one measure, in rounds.
struct Result {
  std::string measure;
  std::string unit = "ns";
  bool latency = false;  // one number for each message instead of each round
  std::vector<double> ours;
  std::vector<double> limit;        // empty when there is none
  std::vector<double> allocations;  // for each message, on the measured thread
};

// Prints a result as one line of JSON.
void Tell(const Result& result);
// Where results go: standard output as it was at the start of the program.
std::FILE* Results();
// The library's own lines are dropped from now on.
void TakeStandardOutput();

}  // namespace corvalint::bench
