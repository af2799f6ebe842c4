#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "harness/desk_types.h"

namespace corvalint::demo {

// Places in the two lists of a message that arrived as it was sent.
struct Match {
  std::size_t sent = 0;
  std::size_t received = 0;

  friend bool operator==(const Match&, const Match&) = default;
};

// How what was received differs from what was sent. Every sent message is matched, lost, changed or
// reordered; every received one is matched, changed, reordered or extra.
struct Comparison {
  std::vector<Match> matches;  // in order
  std::size_t lost = 0;
  std::size_t changed = 0;    // something else stands where it should
  std::size_t reordered = 0;  // arrived whole, at another place
  std::size_t extra = 0;      // nobody sent it
};

// Finds the fewest differences that explain what was received. Takes linear time when all is well;
// in the worst case time grows with the product of both lengths, memory never does.
Comparison Compare(const std::vector<harness::Bytes>& sent,
                   const std::vector<harness::Bytes>& received);

// "message 5: sent 90 3c 64, received nothing", counted from 1; empty if there is no difference.
std::string FirstDifference(const std::vector<harness::Bytes>& sent,
                            const std::vector<harness::Bytes>& received);

}  // namespace corvalint::demo
