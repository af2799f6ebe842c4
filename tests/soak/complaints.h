#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvalint::soak {

// What must never happen and did, noted by whoever saw it. A run is good when there is nothing
// here. Any thread.
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::uint64_t ComplaintCount();
// At most the first 50.
std::vector<std::string> Complaints();

// Complains, naming what is wrong, unless `holds`; gives `holds` back.
bool Expect(bool holds, const std::string& what);

}  // namespace corvalint::soak
