#include "demo/comparison.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <span>

namespace corvalint::demo {

namespace {

// Messages as numbers, equal ones with equal numbers, which are cheaper to compare.
using Numbers = std::vector<std::uint32_t>;
using View = std::span<const std::uint32_t>;

class Numbering {
 public:
  Numbers Of(const std::vector<harness::Bytes>& messages) {
    Numbers numbers;
    numbers.reserve(messages.size());
    for (const harness::Bytes& message : messages) {
      const auto next = static_cast<std::uint32_t>(known.size());
      numbers.push_back(known.try_emplace(message, next).first->second);
    }
    return numbers;
  }

 private:
  std::map<harness::Bytes, std::uint32_t> known;
};

// lengths[j]: of the longest common subsequence of `a` and the first j of `b`.
Numbers CommonLengths(View a, View b) {
  Numbers lengths(b.size() + 1, 0);
  for (const std::uint32_t number : a) {
    std::uint32_t diagonal = 0;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::uint32_t above = lengths[j + 1];
      lengths[j + 1] = number == b[j] ? diagonal + 1 : std::max(above, lengths[j]);
      diagonal = above;
    }
  }
  return lengths;
}

Numbers Backwards(View view) { return {view.rbegin(), view.rend()}; }

// Where to cut `b` when `a` is cut at `cut`, so that both halves can be matched by themselves.
std::size_t BestCut(View a, View b, std::size_t cut) {
  const Numbers before = CommonLengths(a.first(cut), b);
  const Numbers after = CommonLengths(Backwards(a.subspan(cut)), Backwards(b));
  std::size_t best = 0;
  for (std::size_t j = 1; j <= b.size(); ++j) {
    if (before[j] + after[b.size() - j] > before[best] + after[b.size() - best]) best = j;
  }
  return best;
}

// Adds the matches of a longest common subsequence. `at` is where the two views begin.
void Align(View a, View b, Match at, std::vector<Match>& matches) {
  while (!a.empty() && !b.empty() && a.front() == b.front()) {
    matches.push_back(at);
    a = a.subspan(1);
    b = b.subspan(1);
    ++at.sent;
    ++at.received;
  }
  std::size_t tail = 0;
  while (tail < a.size() && tail < b.size() && a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) {
    ++tail;
  }
  const View middleA = a.first(a.size() - tail);
  const View middleB = b.first(b.size() - tail);
  if (middleA.size() == 1 && !middleB.empty()) {
    const auto found = std::find(middleB.begin(), middleB.end(), middleA[0]);
    if (found != middleB.end()) {
      const auto offset = static_cast<std::size_t>(found - middleB.begin());
      matches.push_back({at.sent, at.received + offset});
    }
  } else if (!middleA.empty() && !middleB.empty()) {
    const std::size_t cutA = middleA.size() / 2;
    const std::size_t cutB = BestCut(middleA, middleB, cutA);
    Align(middleA.first(cutA), middleB.first(cutB), at, matches);
    Align(middleA.subspan(cutA), middleB.subspan(cutB), {at.sent + cutA, at.received + cutB},
          matches);
  }
  for (std::size_t i = 0; i < tail; ++i) {
    matches.push_back({at.sent + middleA.size() + i, at.received + middleB.size() + i});
  }
}

// Between two matches: the messages that stand unmatched on both sides.
struct Gap {
  Numbers sent;
  Numbers received;
};

std::vector<Gap> Gaps(View sent, View received, const std::vector<Match>& matches) {
  std::vector<Gap> gaps;
  Match from;
  const auto add = [&](const Match& to) {
    const View a = sent.subspan(from.sent, to.sent - from.sent);
    const View b = received.subspan(from.received, to.received - from.received);
    if (!a.empty() || !b.empty()) gaps.push_back({{a.begin(), a.end()}, {b.begin(), b.end()}});
    from = {to.sent + 1, to.received + 1};
  };
  for (const Match& match : matches) add(match);
  add({sent.size(), received.size()});
  return gaps;
}

// Takes the messages out of the gaps that were sent in one and received in another.
std::size_t TakeReordered(std::vector<Gap>& gaps) {
  std::map<std::uint32_t, std::size_t> elsewhere;
  for (const Gap& gap : gaps) {
    for (const std::uint32_t number : gap.received) ++elsewhere[number];
  }
  std::map<std::uint32_t, std::size_t> moved;
  std::size_t reordered = 0;
  for (Gap& gap : gaps) {
    std::erase_if(gap.sent, [&](std::uint32_t number) {
      const auto found = elsewhere.find(number);
      if (found == elsewhere.end() || found->second == 0) return false;
      --found->second;
      ++moved[number];
      ++reordered;
      return true;
    });
  }
  for (Gap& gap : gaps) {
    std::erase_if(gap.received, [&](std::uint32_t number) {
      const auto found = moved.find(number);
      if (found == moved.end() || found->second == 0) return false;
      --found->second;
      return true;
    });
  }
  return reordered;
}

std::string TextOf(const std::vector<harness::Bytes>& messages, std::size_t place) {
  constexpr std::size_t kMostBytes = 12;
  if (place >= messages.size()) return "nothing";
  const harness::Bytes& message = messages[place];
  std::string text;
  for (std::size_t i = 0; i < message.size() && i < kMostBytes; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), i == 0 ? "%02x" : " %02x", message[i]);
    text += digits;
  }
  if (message.empty()) text = "no bytes";
  return message.size() > kMostBytes ? text + " ..." : text;
}

}  // namespace

Comparison Compare(const std::vector<harness::Bytes>& sent,
                   const std::vector<harness::Bytes>& received) {
  Numbering numbering;
  const Numbers a = numbering.Of(sent);
  const Numbers b = numbering.Of(received);
  Comparison comparison;
  Align(a, b, {}, comparison.matches);
  std::vector<Gap> gaps = Gaps(a, b, comparison.matches);
  comparison.reordered = TakeReordered(gaps);
  for (const Gap& gap : gaps) {
    const std::size_t changed = std::min(gap.sent.size(), gap.received.size());
    comparison.changed += changed;
    comparison.lost += gap.sent.size() - changed;
    comparison.extra += gap.received.size() - changed;
  }
  return comparison;
}

std::string FirstDifference(const std::vector<harness::Bytes>& sent,
                            const std::vector<harness::Bytes>& received) {
  const auto [a, b] = std::mismatch(sent.begin(), sent.end(), received.begin(), received.end());
  if (a == sent.end() && b == received.end()) return {};
  const auto place = static_cast<std::size_t>(a - sent.begin());
  return "message " + std::to_string(place + 1) + ": sent " + TextOf(sent, place) + ", received " +
         TextOf(received, place);
}

}  // namespace corvalint::demo
