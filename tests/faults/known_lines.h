#pragma once

#include <string>

#include "fault_plan.h"

namespace corvalint::faults {

// The lines of a run that nothing in it is a reason for, one a line; empty when there are none.
// `printed` is what went to standard output and standard error, `logged` the log.
std::string UnknownLines(const Report& report, const Plan& plan, const std::string& printed,
                         const std::string& logged);

// The lines that the function that failed first must leave and did not, empty when there are none.
std::string MissingLines(const Report& report, const std::string& printed,
                         const std::string& logged);

}  // namespace corvalint::faults
