// How the demo finds out what happened to the music on its way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "demo/comparison.h"

namespace corvalint::demo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One message for each letter.
std::vector<harness::Bytes> Messages(const std::string& letters) {
  std::vector<harness::Bytes> messages;
  for (const char letter : letters) {
    messages.push_back({0x90, static_cast<std::uint8_t>(letter), 0x64});
  }
  return messages;
}

Comparison Compared(const std::string& sent, const std::string& received) {
  return Compare(Messages(sent), Messages(received));
}

void ExpectCounts(const Comparison& comparison, std::size_t matched, std::size_t lost,
                  std::size_t changed, std::size_t reordered, std::size_t extra) {
  EXPECT_EQ(comparison.matches.size(), matched);
  EXPECT_EQ(comparison.lost, lost);
  EXPECT_EQ(comparison.changed, changed);
  EXPECT_EQ(comparison.reordered, reordered);
  EXPECT_EQ(comparison.extra, extra);
}

TEST(DemoComparison, MatchesAllOfTheSame) {
  const Comparison comparison = Compared("abcab", "abcab");
  ExpectCounts(comparison, 5, 0, 0, 0, 0);
  EXPECT_THAT(comparison.matches,
              ElementsAre(Match{0, 0}, Match{1, 1}, Match{2, 2}, Match{3, 3}, Match{4, 4}));
}

TEST(DemoComparison, FindsNothingInNothing) { ExpectCounts(Compared("", ""), 0, 0, 0, 0, 0); }

TEST(DemoComparison, CountsLostAtEveryPlace) {
  ExpectCounts(Compared("abcde", "bcde"), 4, 1, 0, 0, 0);
  ExpectCounts(Compared("abcde", "abde"), 4, 1, 0, 0, 0);
  ExpectCounts(Compared("abcde", "abcd"), 4, 1, 0, 0, 0);
  ExpectCounts(Compared("abcde", ""), 0, 5, 0, 0, 0);
}

TEST(DemoComparison, PairsWhatFollowsALossWithItself) {
  EXPECT_THAT(Compared("abcde", "abde").matches,
              ElementsAre(Match{0, 0}, Match{1, 1}, Match{3, 2}, Match{4, 3}));
}

TEST(DemoComparison, CountsExtra) {
  ExpectCounts(Compared("abc", "abxc"), 3, 0, 0, 0, 1);
  ExpectCounts(Compared("abc", "abbc"), 3, 0, 0, 0, 1);
  ExpectCounts(Compared("", "ab"), 0, 0, 0, 0, 2);
}

TEST(DemoComparison, CountsChanged) {
  ExpectCounts(Compared("abcde", "abxde"), 4, 0, 1, 0, 0);
  ExpectCounts(Compared("a", "x"), 0, 0, 1, 0, 0);
}

TEST(DemoComparison, CountsReordered) {
  ExpectCounts(Compared("abcd", "acbd"), 3, 0, 0, 1, 0);
  ExpectCounts(Compared("abcdef", "bcdefa"), 5, 0, 0, 1, 0);
}

TEST(DemoComparison, TellsSeveralHarmsApart) {
  // b changed into x, d lost, g moved behind i, y never sent.
  ExpectCounts(Compared("abcdefghij", "axcefhigjy"), 7, 1, 1, 1, 1);
}

TEST(DemoComparison, KeepsTheBooksInEveryCase) {
  const std::vector<std::string> texts = {"",     "a",     "ab",    "ba",     "aab",
                                          "abab", "abcba", "bbbbb", "cabcab", "dcbaabcd"};
  for (const std::string& sent : texts) {
    for (const std::string& received : texts) {
      SCOPED_TRACE(sent + " as " + received);
      const Comparison found = Compared(sent, received);
      const std::size_t there = found.matches.size() + found.changed + found.reordered;
      EXPECT_EQ(there + found.lost, sent.size());
      EXPECT_EQ(there + found.extra, received.size());
      EXPECT_EQ(sent == received, found.matches.size() == sent.size() && found.extra == 0);
      for (const Match& match : found.matches) {
        EXPECT_EQ(sent[match.sent], received[match.received]);
      }
    }
  }
}

TEST(DemoComparison, FindsALongLossAmongRepeatedMessages) {
  std::string sent;
  for (int i = 0; i < 3000; ++i) sent += static_cast<char>('a' + i * i % 23);
  std::string received = sent;
  received.erase(1000, 700);
  ExpectCounts(Compared(sent, received), 2300, 700, 0, 0, 0);
}

TEST(DemoComparison, NamesTheFirstDifference) {
  EXPECT_THAT(FirstDifference(Messages("abc"), Messages("abc")), IsEmpty());
  EXPECT_EQ(FirstDifference(Messages("abc"), Messages("adc")),
            "message 2: sent 90 62 64, received 90 64 64");
  EXPECT_EQ(FirstDifference(Messages("ab"), Messages("a")),
            "message 2: sent 90 62 64, received nothing");
  EXPECT_EQ(FirstDifference({}, {{}}), "message 1: sent nothing, received no bytes");
  EXPECT_EQ(FirstDifference({harness::Bytes(20, 0xF0)}, {}),
            "message 1: sent f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 f0 ..., received nothing");
}

}  // namespace
}  // namespace corvalint::demo
