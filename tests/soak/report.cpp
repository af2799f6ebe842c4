#include "soak/report.h"

#include <unistd.h>

#include <cstdlib>

#include "soak/complaints.h"

namespace corvalint::soak {

namespace {
std::FILE* report = nullptr;
}  // namespace

void TakeStandardOutput() {
  report = fdopen(dup(STDOUT_FILENO), "w");
  if (report == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
  setvbuf(report, nullptr, _IOLBF, 0);
}

std::FILE* Report() { return report; }

bool ReportComplaints() {
  for (const std::string& complaint : Complaints()) {
    std::fprintf(report, "WRONG: %s\n", complaint.c_str());
  }
  std::fprintf(report, "%llu complaints\n", static_cast<unsigned long long>(ComplaintCount()));
  return ComplaintCount() == 0;
}

}  // namespace corvalint::soak
