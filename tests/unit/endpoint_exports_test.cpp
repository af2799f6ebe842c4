#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "corvalint_wrapper.h"
#include "support/endpoint_exports.h"

namespace corvalint {
namespace {

using test::EitherList;
using test::kDestinations;
using test::kSources;

INSTANTIATE_TEST_SUITE_P(Exports, EitherList, testing::Values(kSources, kDestinations),
                         [](const auto& test) { return std::string(test.param.kind); });

// --- the lists

TEST_P(EitherList, IsEmptyBeforeTheFirstScan) {
  EXPECT_EQ(GetParam().count(), 0);
  ExpectNoPosition(0);
}

TEST_P(EitherList, CountsItsEntries) {
  Add("a", 1);
  Add("b", 2);
  AddToTheOtherList("c", 3);
  EXPECT_EQ(GetParam().count(), 2);
}

TEST_P(EitherList, GivesTheIdsInListOrder) {
  Add("a", 30);
  Add("b", -10);
  Add("c", 0);
  AddToTheOtherList("d", 99);
  EXPECT_EQ(GetParam().idAt(0), 30);
  EXPECT_EQ(GetParam().idAt(1), -10);
  EXPECT_EQ(GetParam().idAt(2), 0);
}

TEST_P(EitherList, RaisesForAPositionOutsideIt) {
  Add("a", 1);
  Add("b", 2);
  for (const int position : {-1, 2, 3, INT_MIN, INT_MAX}) ExpectNoPosition(position);
}

// --- names

TEST_P(EitherList, ReadsANameByteByByte) {
  Add("Org", 7);
  EXPECT_EQ(GetParam().nameLength(7), 3u);
  EXPECT_EQ(GetParam().nameByte(7, 0), 'O');
  EXPECT_EQ(GetParam().nameByte(7, 1), 'r');
  EXPECT_EQ(GetParam().nameByte(7, 2), 'g');
  for (const int position : {3, 4, -1, INT_MIN, INT_MAX}) ExpectNoByte(7, position);
}

TEST_P(EitherList, ReadsNamesBeyondAscii) {
  const std::string name = "Fl\xF6te \x80\xFF\x01";
  Add(name, 7);
  EXPECT_EQ(NameOf(7), name);
}

TEST_P(EitherList, ReadsANameOfAllThirtyOneBytes) {
  const std::string name = "1234567890123456789012345678901";
  Add(name, 7);
  EXPECT_EQ(GetParam().nameLength(7), 31u);
  EXPECT_EQ(NameOf(7), name);
}

TEST_P(EitherList, AnEmptyNameHasNoByte) {
  Add("", 7);
  EXPECT_EQ(GetParam().nameLength(7), 0u);
  ExpectNoByte(7, 0);
}

// --- ids

TEST_P(EitherList, AnswersZeroToAnUnknownIdAndPrintsNothing) {
  Add("Keys", 7).off = false;
  AddToTheOtherList("Other", 8).off = false;
  for (const int id : {8, 0, -7, INT_MIN, INT_MAX}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(GetParam().nameLength(id), 0u);
    for (const int position : {0, 3, -1, INT_MAX}) EXPECT_EQ(GetParam().nameByte(id, position), 0);
    EXPECT_EQ(GetParam().status(id), 0);
    EXPECT_EQ(GetParam().available(id), 0);
  }
  EXPECT_EQ(console.Text(), "");
}

TEST_P(EitherList, FindsEveryIdThatThereCanBe) {
  int number = 0;
  for (const int id : {0, -1, INT_MIN, INT_MAX}) {
    const std::string name = "n" + std::to_string(number++);
    Add(name, id);
    EXPECT_EQ(NameOf(id), name);
  }
}

TEST_P(EitherList, FindsTheFirstOfTwoEndpointsWithOneId) {
  Add("x", 1);
  Add("first", 7).off = false;
  Add("second", 7).available = false;
  EXPECT_EQ(NameOf(7), "first");
  EXPECT_EQ(GetParam().status(7), 1);
  EXPECT_EQ(GetParam().available(7), 1);
}

TEST_P(EitherList, KeepsTheTwoListsApart) {
  Add("mine", 7).off = false;
  AddToTheOtherList("theirs", 7).available = false;
  EXPECT_EQ(NameOf(7), "mine");
  EXPECT_EQ(GetParam().status(7), 1);
  EXPECT_EQ(GetParam().available(7), 1);
}

// --- on, off and available

TEST_P(EitherList, TellsTheStatusAndPrintsItWithoutALineEnd) {
  MidiEndpoint& endpoint = Add("Keys", 7);
  endpoint.off = false;
  EXPECT_EQ(GetParam().status(7), 1);
  EXPECT_EQ(console.Take(), "true");
  endpoint.off = true;
  EXPECT_EQ(GetParam().status(7), 0);
  EXPECT_EQ(GetParam().status(7), 0);
  EXPECT_EQ(console.Take(), "falsefalse");
}

TEST_P(EitherList, TellsWhetherItIsAvailableAndPrintsNothing) {
  MidiEndpoint& endpoint = Add("Keys", 7);
  EXPECT_EQ(GetParam().available(7), 1);
  endpoint.available = false;
  EXPECT_EQ(GetParam().available(7), 0);
  EXPECT_EQ(console.Text(), "");
}

}  // namespace
}  // namespace corvalint
