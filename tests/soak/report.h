#pragma once

#include <cstdio>

namespace corvalint::soak {

// Where a long run says what it found: the standard output of the process as it was. From
// TakeStandardOutput on, the library's own lines on standard output are dropped.
void TakeStandardOutput();
std::FILE* Report();

// Prints the complaints and their number; true when there are none.
bool ReportComplaints();

}  // namespace corvalint::soak
