#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "demo/comparison.h"
#include "harness/desk_types.h"

namespace corvalint::demo {

// One row of the closing table: all that one receiver got on one way at one pace.
struct Row {
  std::string way;
  std::string pace;
  std::size_t sent = 0;
  std::size_t received = 0;
  std::size_t lost = 0;
  std::size_t changed = 0;
  std::size_t reordered = 0;
  std::size_t extra = 0;            // received, and never sent
  std::uint64_t bytes = 0;          // of MIDI or of OSC packets, received
  std::vector<std::int64_t> times;  // nanoseconds from sending to arrival, of unharmed messages

  // Adds what one performance brought. Times of both lists are of one clock. Answers what differs
  // first, or an empty text.
  std::string Add(const std::vector<harness::Recorded>& sentMessages,
                  const std::vector<harness::Recorded>& receivedMessages);
  // Whether everything that was sent arrived unchanged and in order, and nothing else.
  bool Perfect() const { return lost + changed + reordered + extra == 0; }
};

// The table with its heading, lines ended by line feeds.
std::string FormatTable(const std::vector<Row>& rows);

// One sentence on all rows, and whether it is good news.
struct Verdict {
  bool good = false;
  std::string text;
};
Verdict Judge(const std::vector<Row>& rows);

// 1234567 as "1,234,567".
std::string Grouped(std::uint64_t number);

}  // namespace corvalint::demo
