#pragma once

#include <string>

namespace corvalint::faults {

// The lines of a run that the library never has a reason to write, one a line; empty when there are
// none. `printed` is what went to standard output and standard error, `logged` the log.
std::string UnknownLines(const std::string& printed, const std::string& logged);

// The lines that the failure of a function must leave and did not, empty when there are none.
std::string MissingLines(const std::string& function, const std::string& step,
                         const std::string& printed, const std::string& logged);

}  // namespace corvalint::faults
