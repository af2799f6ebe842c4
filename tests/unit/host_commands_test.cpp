// What the console host reads from its command line and from the lists of the library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/exit_codes.h"
#include "host/json.h"
#include "unit/support/host_fake.h"

namespace corvalint::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(JsonTest, EscapesWhatJsonCannotHoldAndKeepsUtf8) {
  EXPECT_EQ(JsonEscape("a\"b\\c\n\x01\x1f\x7f caf\xC3\xA9"),
            "a\\\"b\\\\c\\u000a\\u0001\\u001f\x7f caf\xC3\xA9");
}

TEST(JsonTest, HexIsTwoDigitsForEachByteAlsoAboveSevenBits) {
  EXPECT_EQ(HexBytes(std::string("\0A\xE9\xFF", 4)), "0041e9ff");
  EXPECT_EQ(HexBytes(""), "");
}

TEST(JsonTest, ObjectKeepsTheOrderOfItsMembers) {
  EXPECT_EQ(JsonObject().Text(), "{}");
  EXPECT_EQ(JsonObject().Number("z", -5).Bool("a", false).String("m", "\"").Raw("r", "[1]").Text(),
            R"({"z":-5,"a":false,"m":"\"","r":[1]})");
}

TEST(CommandsTest, OptionsStandAnywhereAndWordsFollowTwoDashes) {
  Options options = ParseOptions({"--verbose", "on", "USB", "--json", "-7"});
  EXPECT_TRUE(options.verbose);
  EXPECT_TRUE(options.json);
  EXPECT_EQ(options.command, "on USB -7");
  EXPECT_EQ(options.error, "");
  options = ParseOptions({"on", "--", "--json", "-", "--"});
  EXPECT_FALSE(options.json);
  EXPECT_EQ(options.command, "on --json - --");
  EXPECT_EQ(options.error, "");
}

TEST(CommandsTest, SenselessOptionsAreAnError) {
  EXPECT_EQ(ParseOptions({"--jsn"}).error, "unknown option --jsn");
  EXPECT_NE(ParseOptions({"--no-start"}).error, "");
  EXPECT_NE(ParseOptions({"--json", "--no-start", "list"}).error, "");
  EXPECT_EQ(ParseOptions({"--json", "--no-start"}).error, "");
  EXPECT_EQ(ParseOptions({"--json", "list"}).error, "");
  EXPECT_EQ(ParseOptions({}).error, "");
}

TEST(CommandsTest, AnErrorIsAnsweredInDocumentsWhereverThatIsAskedFor) {
  Options options = ParseOptions({"--what", "--why", "--json"});
  EXPECT_EQ(options.error, "unknown option --what");
  EXPECT_TRUE(options.json);
}

TEST(CommandsTest, SecondsAreTheDoctorsAndHaveLimits) {
  Options options = ParseOptions({"doctor", "--listen=0", "--wait=3600"});
  EXPECT_EQ(options.error, "");
  EXPECT_EQ(options.listenSeconds, 0);
  EXPECT_EQ(options.waitSeconds, 3600);
  EXPECT_EQ(ParseOptions({"doctor"}).listenSeconds, std::nullopt);
  for (const char* bad : {"--listen", "--listen=", "--listen=-1", "--wait=3601", "--wait=soon"}) {
    EXPECT_THAT(ParseOptions({"doctor", bad}).error, HasSubstr(" takes seconds")) << bad;
  }
  EXPECT_EQ(ParseOptions({"list", "--wait=1"}).error, "--listen and --wait go with doctor only");
}

TEST(CommandsTest, WhatMakesNoSenseIsFoundBeforeAnythingIsDone) {
  auto problem = [](const char* line) { return CommandProblem(ParseCommand(line)); };
  for (const char* good : {"", "list", "on Keys", "off both 7", "toggle source", "watch", "watch 0",
                           "clients", "doctor", "help", "quit"}) {
    EXPECT_EQ(problem(good), "") << good;
  }
  EXPECT_EQ(problem("dance"), "unknown command dance");
  EXPECT_EQ(problem("List"), "unknown command List");
  EXPECT_EQ(problem("list all"), "list takes nothing after it");
  EXPECT_EQ(problem("doctor please"), "doctor takes nothing after it");
  EXPECT_EQ(problem("off"), "off needs an id or a name; list shows them");
  EXPECT_EQ(problem("watch soon"), "watch takes a number of seconds");
  EXPECT_EQ(problem("watch -1"), "watch takes a number of seconds");
}

TEST(CommandsTest, SplitsTheVerbFromTheRest) {
  Command command = ParseCommand(" \ton  USB  Keys \r\n");
  EXPECT_EQ(command.verb, "on");
  EXPECT_EQ(command.rest, "USB  Keys");
  EXPECT_EQ(ParseCommand(" \r").verb, "");
  EXPECT_THAT(SplitWords(" a  bc\td\r"), ElementsAre("a", "bc", "d"));
  EXPECT_THAT(SplitWords("  "), IsEmpty());
}

TEST(CommandsTest, NumbersAreWholeOrNothing) {
  EXPECT_EQ(ParseInt32("-2147483648"), INT32_MIN);
  EXPECT_EQ(ParseInt32("2147483647"), INT32_MAX);
  EXPECT_EQ(ParseInt64("-9223372036854775808"), INT64_MIN);
  for (const char* bad : {"", "-", "2147483648", "1x", " 1", "1 ", "+1", "0x10"}) {
    EXPECT_EQ(ParseInt32(bad), std::nullopt) << bad;
  }
}

TEST(CommandsTest, TargetsAreQuotedOrNotAndMayNameTheirSide) {
  EXPECT_EQ(ParseTarget("USB Keys").text, "USB Keys");
  EXPECT_EQ(ParseTarget("\"USB Keys\"").text, "USB Keys");
  EXPECT_EQ(ParseTarget("USB Keys").side, SideFilter::kAny);
  EXPECT_EQ(ParseTarget("source \"Keys\"").side, SideFilter::kSources);
  EXPECT_EQ(ParseTarget("source \"Keys\"").text, "Keys");
  EXPECT_EQ(ParseTarget("destination 5").side, SideFilter::kDestinations);
  EXPECT_EQ(ParseTarget("both Keys").side, SideFilter::kBoth);
  EXPECT_EQ(ParseTarget("both Keys").text, "Keys");
  // An endpoint may be called like that itself.
  EXPECT_EQ(ParseTarget("source").side, SideFilter::kAny);
  EXPECT_EQ(ParseTarget("source").text, "source");
}

int rangeFailures = 0;

// The id at a position, after which two endpoints go at once as long as there are many.
int IdBeforeTwoGo(int position) {
  FakeSide& side = fakeSides[0];
  if (static_cast<std::size_t>(position) >= side.size()) ++rangeFailures;
  const int id = IdAt<0>(position);
  if (side.size() > 2) side.erase(side.begin(), side.begin() + 2);
  return id;
}

TEST_F(HostTest, AWalkNeverAsksBeyondTheEndWhenSeveralEndpointsGoAtOnce) {
  fakeSides[0] = {{1, "a"}, {2, "b"}, {3, "c"}, {4, "d"}, {5, "e"}, {6, "f"}};
  wrapper.sources.idAt = IdBeforeTwoGo;
  rangeFailures = 0;
  const std::vector<Endpoint> endpoints = ReadEndpoints(wrapper.sources, system);
  EXPECT_EQ(rangeFailures, 0);
  ASSERT_EQ(endpoints.size(), 2U);
  EXPECT_EQ(endpoints[0].name, "e");
  EXPECT_EQ(endpoints[1].name, "f");
}

TEST_F(HostTest, AWalkStartsAgainWhenAnEndpointVanishesUnderIt) {
  vanishAtIdRead = 1;  // Counted two, the second is gone when it is asked for.
  std::vector<Endpoint> endpoints = ReadEndpoints(wrapper.sources, system);
  ASSERT_EQ(endpoints.size(), 1U);
  EXPECT_EQ(endpoints[0].id, -7);
}

TEST_F(HostTest, AWalkStartsAgainWhenTheListWasAnotherAfterwards) {
  vanishAtIdRead = 3;  // Both were read, then one goes.
  std::vector<Endpoint> endpoints = ReadEndpoints(wrapper.sources, system);
  ASSERT_EQ(endpoints.size(), 1U);
  EXPECT_EQ(endpoints[0].name, "Keys");
}

TEST_F(HostTest, AWalkThatNeverComesToRestHandsTheFailureOn) {
  wrapper.sources.count = []() -> corvalint_int64 { return 3; };
  EXPECT_THROW(ReadEndpoints(wrapper.sources, system), std::out_of_range);
  EXPECT_EQ(Say("list", kExitFailed), "1: that failed: invalid vector<T> subscript\n");
}

// The count of the destinations, before which a device arrives once that is a source as well.
corvalint_int64 CountAfterAnArrival() {
  if (fakeSides[1].empty()) {
    fakeSides[0].push_back({5, "Twin"});
    fakeSides[1].push_back({6, "Twin"});
  }
  return static_cast<corvalint_int64>(fakeSides[1].size());
}

TEST_F(HostTest, ADeviceThatComesBetweenTheListsStandsInBoth) {
  fakeSides[1].clear();
  wrapper.destinations.count = CountAfterAnArrival;
  const Listing listing = ReadListing(wrapper, system);
  ASSERT_EQ(listing.sources.size(), 3U);
  EXPECT_EQ(listing.sources[2].name, "Twin");
  ASSERT_EQ(listing.destinations.size(), 1U);
  EXPECT_EQ(listing.destinations[0].name, "Twin");
}

TEST_F(HostTest, AnIdIsLookedForBeforeAName) {
  fakeSides[0] = {{1, "2"}, {2, "two"}, {3, "two"}};
  std::vector<Endpoint> endpoints = ReadEndpoints(wrapper.sources, system);
  EXPECT_EQ(FindEndpoints(endpoints, "2").at(0).id, 2);
  EXPECT_EQ(FindEndpoints(endpoints, "two").size(), 2U);
  fakeSides[0].erase(fakeSides[0].begin() + 1);
  EXPECT_EQ(FindEndpoints(ReadEndpoints(wrapper.sources, system), "2").at(0).id, 1);
  EXPECT_THAT(FindEndpoints(endpoints, "tw"), IsEmpty());
}

}  // namespace
}  // namespace corvalint::host
