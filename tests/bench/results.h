#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace corvalint::bench {

// What was seen of one measure, in rounds.
struct Result {
  std::string measure;
  std::string unit = "ns";
  int phases = 0;  // of a latency: one number for each message, so many times as many in a row
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
