#include "soak/trend.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace corvalint::soak {

namespace {
constexpr std::size_t kFewestSamples = 20;
}  // namespace

Trend::Trend(std::vector<Quantity> quantities, std::size_t mostSamples)
    : columns(std::move(quantities)) {
  cycles.reserve(mostSamples);
  samples.reserve(mostSamples * columns.size());
}

void Trend::Add(std::uint64_t cycle, const std::vector<double>& values) {
  if (values.size() != columns.size()) throw std::invalid_argument("a value for each quantity");
  if (cycles.size() == cycles.capacity())
    throw std::length_error("more samples than were promised");
  cycles.push_back(cycle);
  samples.insert(samples.end(), values.begin(), values.end());
}

double Trend::Mean(std::size_t column, std::size_t first, std::size_t last) const {
  double sum = 0;
  for (std::size_t i = first; i < last; ++i) sum += At(i, column);
  return sum / static_cast<double>(last - first);
}

bool Trend::JudgeColumn(std::size_t column, std::FILE* report) const {
  const Quantity& quantity = columns[column];
  const std::size_t tenth = cycles.size() / 10;
  const double first = Mean(column, 0, tenth);
  const double last = Mean(column, cycles.size() - tenth, cycles.size());
  double largest = At(0, column);
  for (std::size_t i = 0; i < cycles.size(); ++i) largest = std::max(largest, At(i, column));
  const bool grew = quantity.mayGrow >= 0 && last - first > quantity.mayGrow;
  const bool passed = quantity.ceiling > 0 && largest > quantity.ceiling;
  std::fprintf(report, "  %-12s %14.1f %14.1f %+14.1f %14.0f  %s\n", quantity.name.c_str(), first,
               last, last - first, largest,
               grew                   ? "GROWS"
               : passed               ? "TOO LARGE"
               : quantity.mayGrow < 0 ? "bounded"
                                      : "flat");
  return !grew && !passed;
}

bool Trend::Judge(std::FILE* report) const {
  if (cycles.size() < kFewestSamples) {
    std::fprintf(report, "only %zu samples\n", cycles.size());
    return false;
  }
  std::fprintf(report, "  %-12s %14s %14s %14s %14s\n", "", "first tenth", "last tenth",
               "difference", "largest");
  bool good = true;
  for (std::size_t i = 0; i < columns.size(); ++i) good = JudgeColumn(i, report) && good;
  return good;
}

void Trend::Write(const std::filesystem::path& file) const {
  std::ofstream out(file);
  out << "cycle";
  for (const Quantity& quantity : columns) out << ' ' << quantity.name;
  out << std::fixed;
  out.precision(0);
  for (std::size_t i = 0; i < cycles.size(); ++i) {
    out << '\n' << cycles[i];
    for (std::size_t column = 0; column < columns.size(); ++column) out << ' ' << At(i, column);
  }
  out << '\n' << std::flush;
  if (!out) throw std::runtime_error("cannot write " + file.string());
}

}  // namespace corvalint::soak
