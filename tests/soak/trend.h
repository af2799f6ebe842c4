#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace corvalint::soak {

// Something that is sampled over a long run. Numbers must not grow: `mayGrow` is by how much the
// mean of the last tenth of the samples may lie above that of the first. Where it is negative the
// growth does not count and only `ceiling` does, which no sample may pass; a ceiling of 0 is none.
struct Quantity {
  std::string name;  // without blanks
  double mayGrow = 0;
  double ceiling = 0;
};

// Samples of several quantities over a long run, and the verdict on them. For one thread.
class Trend {
 public:
  // It has its memory from the start on, so that it does not grow itself while it samples.
  Trend(std::vector<Quantity> quantities, std::size_t mostSamples);

  // One value for each quantity, taken after so many cycles. Throws std::length_error when that is
  // one sample too many.
  void Add(std::uint64_t cycle, const std::vector<double>& values);

  // Prints a line for each quantity: first tenth, last tenth, difference, largest, verdict. False
  // when one of them grew too much or passed its ceiling, or when there are too few samples to
  // tell.
  bool Judge(std::FILE* report) const;

  // A table with a line of names, "cycle" first; throws std::runtime_error when it cannot be
  // written.
  void Write(const std::filesystem::path& file) const;

 private:
  double At(std::size_t sample, std::size_t column) const {
    return samples[sample * columns.size() + column];
  }
  double Mean(std::size_t column, std::size_t first, std::size_t last) const;
  bool JudgeColumn(std::size_t column, std::FILE* report) const;

  const std::vector<Quantity> columns;
  std::vector<std::uint64_t> cycles;
  std::vector<double> samples;  // one after the other
};

}  // namespace corvalint::soak
