#include "demo/table.h"

#include <algorithm>
#include <array>

#include "harness/latencies.h"

namespace corvalint::demo {

namespace {

constexpr std::size_t kColumns = 10;
constexpr std::size_t kTextColumns = 2;  // the first ones, set flush left
using Cells = std::array<std::string, kColumns>;

std::vector<harness::Bytes> BytesOf(const std::vector<harness::Recorded>& messages) {
  std::vector<harness::Bytes> bytes;
  bytes.reserve(messages.size());
  for (const harness::Recorded& message : messages) bytes.push_back(message.bytes);
  return bytes;
}

// Microseconds, rounded; nothing was measured if nothing arrived.
std::string Microseconds(const std::vector<std::int64_t>& times, double percent) {
  if (times.empty()) return "-";
  const std::int64_t ns = std::max<std::int64_t>(harness::Percentile(times, percent), 0);
  return Grouped(static_cast<std::uint64_t>((ns + 500) / 1000));
}

Cells CellsOf(const Row& row) {
  return {row.way,
          row.pace,
          Grouped(row.sent),
          Grouped(row.received),
          Grouped(row.lost),
          Grouped(row.changed),
          Grouped(row.reordered),
          Grouped(row.bytes),
          Microseconds(row.times, 50),
          Microseconds(row.times, 99)};
}

std::string Line(const Cells& cells, const std::array<std::size_t, kColumns>& widths) {
  std::string line;
  for (std::size_t i = 0; i < kColumns; ++i) {
    if (i > 0) line += "  ";
    const std::string blanks(widths[i] - cells[i].size(), ' ');
    line += i < kTextColumns ? cells[i] + blanks : blanks + cells[i];
  }
  return line + "\n";
}

// "3 lost", or nothing for 0.
void Mention(std::string& list, std::size_t count, const std::string& what) {
  if (count == 0) return;
  if (!list.empty()) list += ", ";
  list += Grouped(count) + " " + what;
}

}  // namespace

std::string Row::Add(const std::vector<harness::Recorded>& sentMessages,
                     const std::vector<harness::Recorded>& receivedMessages) {
  const std::vector<harness::Bytes> sentBytes = BytesOf(sentMessages);
  const std::vector<harness::Bytes> receivedBytes = BytesOf(receivedMessages);
  const Comparison comparison = Compare(sentBytes, receivedBytes);
  sent += sentMessages.size();
  received += receivedMessages.size();
  lost += comparison.lost;
  changed += comparison.changed;
  reordered += comparison.reordered;
  extra += comparison.extra;
  for (const harness::Recorded& message : receivedMessages) bytes += message.bytes.size();
  for (const Match& match : comparison.matches) {
    times.push_back(receivedMessages[match.received].ns - sentMessages[match.sent].ns);
  }
  return FirstDifference(sentBytes, receivedBytes);
}

std::string FormatTable(const std::vector<Row>& rows) {
  std::vector<Cells> lines = {{"way", "pace", "sent", "received", "lost", "changed", "reordered",
                               "bytes", "p50 us", "p99 us"}};
  for (const Row& row : rows) lines.push_back(CellsOf(row));
  std::array<std::size_t, kColumns> widths = {};
  for (const Cells& cells : lines) {
    for (std::size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], cells[i].size());
  }
  std::string table;
  for (const Cells& cells : lines) table += Line(cells, widths);
  return table;
}

Verdict Judge(const std::vector<Row>& rows) {
  Row all;
  for (const Row& row : rows) {
    all.sent += row.sent;
    all.lost += row.lost;
    all.changed += row.changed;
    all.reordered += row.reordered;
    all.extra += row.extra;
  }
  if (all.sent == 0) return {false, "Nothing was played."};
  if (all.Perfect()) {
    return {true, "All " + Grouped(all.sent) + " messages arrived, unchanged and in order."};
  }
  std::string list;
  Mention(list, all.lost, "lost");
  Mention(list, all.changed, "changed");
  Mention(list, all.reordered, "reordered");
  Mention(list, all.extra, "received that nobody sent");
  return {false, "Of " + Grouped(all.sent) + " messages not all arrived as sent: " + list + "."};
}

std::string Grouped(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t end = text.size(); end > 3; end -= 3) text.insert(end - 3, ",");
  return text;
}

}  // namespace corvalint::demo
