// The console host's own logic, against a library that is a few vectors in memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/endpoints.h"
#include "host/json.h"
#include "host/person.h"
#include "host/script.h"

namespace corvalint::host {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

struct FakeEndpoint {
  int id;
  std::string name;
  bool on = false;
  bool available = true;
  bool opens = true;
};

using FakeSide = std::vector<FakeEndpoint>;

FakeSide fakeSides[2];
int idReads = 0;
int vanishAtIdRead = 0;  // The last source goes just before this read of an id; 0: never.
int startCalls = 0;
unsigned int fakeClients = 0;
corvalint_int64 controlArguments[2];

FakeEndpoint* Find(int side, int id) {
  for (FakeEndpoint& endpoint : fakeSides[side]) {
    if (endpoint.id == id) return &endpoint;
  }
  return nullptr;
}

template <int side>
int IdAt(int position) {
  if (++idReads == vanishAtIdRead) fakeSides[0].pop_back();
  if (position < 0 || position >= static_cast<int>(fakeSides[side].size())) {
    throw std::out_of_range("invalid vector<T> subscript");
  }
  return fakeSides[side][static_cast<size_t>(position)].id;
}

template <int side>
char NameByte(int id, int position) {
  FakeEndpoint* endpoint = Find(side, id);
  if (endpoint == nullptr) return 0;
  if (position < 0 || position >= static_cast<int>(endpoint->name.size())) {
    throw std::out_of_range("invalid string position");
  }
  return endpoint->name[static_cast<size_t>(position)];
}

template <int side>
SideCalls FakeCalls() {
  SideCalls calls;
  calls.count = [] { return static_cast<corvalint_int64>(fakeSides[side].size()); };
  calls.idAt = IdAt<side>;
  calls.nameLength = [](int id) {
    FakeEndpoint* endpoint = Find(side, id);
    return endpoint == nullptr ? 0U : static_cast<unsigned int>(endpoint->name.size());
  };
  calls.nameByte = NameByte<side>;
  calls.toggle = [](unsigned int id) {
    FakeEndpoint* endpoint = Find(side, static_cast<int>(id));
    if (endpoint == nullptr) return;
    if (!endpoint->on && !endpoint->opens) endpoint->available = false;
    endpoint->on = !endpoint->on && endpoint->opens;
  };
  calls.status = [](int id) {
    FakeEndpoint* endpoint = Find(side, id);
    return static_cast<corvalint_bool>(endpoint != nullptr && endpoint->on);
  };
  calls.available = [](int id) {
    FakeEndpoint* endpoint = Find(side, id);
    return static_cast<corvalint_bool>(endpoint != nullptr && endpoint->available);
  };
  return calls;
}

Wrapper FakeWrapper() {
  Wrapper wrapper;
  wrapper.start = [] { ++startCalls; };
  wrapper.wifiClients = [] { return 41; };
  wrapper.usbClients = [] { return fakeClients; };
  wrapper.scriptActive = [] { return static_cast<corvalint_bool>(1); };
  wrapper.activeConnections = [] { return 43; };
  wrapper.portControl = [](corvalint_int64 first, corvalint_int64 second) {
    controlArguments[0] = first;
    controlArguments[1] = second;
  };
  wrapper.sources = FakeCalls<0>();
  wrapper.destinations = FakeCalls<1>();
  return wrapper;
}

class HostTest : public ::testing::Test {
 protected:
  HostTest() {
    fakeSides[0] = {{-7, "Keys"}, {12, "Caf\xE9"}};
    fakeSides[1] = {{30, "Keys"}, {31, "Broken", false, true, false}};
    idReads = vanishAtIdRead = startCalls = 0;
    fakeClients = 0;
    controlArguments[0] = controlArguments[1] = 0;
    // Latin-1, the part of the ANSI code page that needs no table.
    system.ansiToUtf8 = [](const std::string& bytes) {
      std::string text;
      for (char byte : bytes) {
        auto code = static_cast<unsigned char>(byte);
        if (code < 0x80) {
          text += byte;
        } else {
          text += static_cast<char>(0xC0 | (code >> 6));
          text += static_cast<char>(0x80 | (code & 0x3F));
        }
      }
      return text;
    };
    system.processCounts = [] { return ProcessCounts{17, 5}; };
    system.sleep = [this](int) {
      ++sleeps;
      if (onSleep) onSleep();
    };
    system.takeInterrupt = [this] { return sleeps >= sleepsUntilInterrupt; };
    system.processId = 99;
  }

  std::string Say(const std::string& line, bool expected) {
    printed.clear();
    EXPECT_EQ(person.Do(line), expected) << line;
    return printed;
  }

  System system;
  Wrapper wrapper = FakeWrapper();
  Script script{wrapper, system};
  std::string printed;
  Person person{wrapper, system, [this](const std::string& text) { printed += text; }};
  std::function<void()> onSleep;
  int sleeps = 0;
  int sleepsUntilInterrupt = 1000;
};

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

TEST(CommandsTest, OptionsStandBeforeTheCommand) {
  Options options = ParseOptions({"--verbose", "on", "USB", "--json"});
  EXPECT_TRUE(options.verbose);
  EXPECT_FALSE(options.json);
  EXPECT_EQ(options.command, "on USB --json");
  EXPECT_EQ(options.error, "");
}

TEST(CommandsTest, SenselessOptionsAreAnError) {
  EXPECT_EQ(ParseOptions({"--jsn"}).error, "unknown option --jsn");
  EXPECT_NE(ParseOptions({"--json", "list"}).error, "");
  EXPECT_NE(ParseOptions({"--no-start"}).error, "");
  EXPECT_EQ(ParseOptions({"--json", "--no-start"}).error, "");
  EXPECT_EQ(ParseOptions({}).error, "");
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
  EXPECT_EQ(ParseTarget("USB Keys").side, SideFilter::kBoth);
  EXPECT_EQ(ParseTarget("source \"Keys\"").side, SideFilter::kSources);
  EXPECT_EQ(ParseTarget("source \"Keys\"").text, "Keys");
  EXPECT_EQ(ParseTarget("destination 5").side, SideFilter::kDestinations);
  // An endpoint may be called like that itself.
  EXPECT_EQ(ParseTarget("source").side, SideFilter::kBoth);
  EXPECT_EQ(ParseTarget("source").text, "source");
}

TEST_F(HostTest, ScriptListsEndpointsWithNameAsTextAndAsBytes) {
  fakeSides[0][1].on = true;
  fakeSides[0][0].available = false;
  EXPECT_EQ(script.Answer("sources\r"),
            R"({"sources":[{"position":0,"id":-7,"name":"Keys","nameHex":"4b657973",)"
            R"("on":false,"available":false},{"position":1,"id":12,"name":"Caf)"
            "\xC3\xA9"
            R"(","nameHex":"436166e9","on":true,"available":true}]})");
  fakeSides[1].clear();
  EXPECT_EQ(script.Answer("destinations"), R"({"destinations":[]})");
}

TEST_F(HostTest, ScriptReachesEachExportOfASide) {
  EXPECT_EQ(script.Answer("toggle-source -7"), R"({"toggled":-7})");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_EQ(script.Answer("source-status -7"), R"({"value":1})");
  EXPECT_EQ(script.Answer("destination-status 30"), R"({"value":0})");
  EXPECT_EQ(script.Answer("toggle-destination 31"), R"({"toggled":31})");
  EXPECT_EQ(script.Answer("destination-available 31"), R"({"value":0})");
  EXPECT_EQ(script.Answer("source-available 12"), R"({"value":1})");
  EXPECT_EQ(script.Answer("name-length-source 12"), R"({"value":4})");
  EXPECT_EQ(script.Answer("name-length-destination 31"), R"({"value":6})");
  EXPECT_EQ(script.Answer("name-byte-source 12 3"), R"({"value":233})");
  EXPECT_EQ(script.Answer("name-byte-destination 31 0"), R"({"value":66})");
  EXPECT_EQ(script.Answer("id-source 1"), R"({"value":12})");
  EXPECT_EQ(script.Answer("id-destination 0"), R"({"value":30})");
  EXPECT_EQ(script.Answer("count-source"), R"({"value":2})");
}

TEST_F(HostTest, ScriptReportsARangeFailureWithItsText) {
  EXPECT_EQ(script.Answer("id-source 2"),
            R"({"error":"out_of_range","what":"invalid vector<T> subscript"})");
  EXPECT_EQ(script.Answer("name-byte-destination 30 4"),
            R"({"error":"out_of_range","what":"invalid string position"})");
  EXPECT_EQ(script.Answer("name-byte-source 999 4"), R"({"value":0})");
}

TEST_F(HostTest, ScriptRefusesWhatItDoesNotUnderstand) {
  EXPECT_EQ(script.Answer("frobnicate"), R"({"error":"unknown command"})");
  EXPECT_EQ(script.Answer(""), R"({"error":"unknown command"})");
  EXPECT_EQ(script.Answer("source"), R"({"error":"unknown command"})");
  EXPECT_EQ(script.Answer("id-source"), R"({"error":"expected 1 arguments, got 0"})");
  EXPECT_EQ(script.Answer("name-byte-source 1"), R"({"error":"expected 2 arguments, got 1"})");
  EXPECT_EQ(script.Answer("id-source one"), R"({"error":"argument 1 is not a 32-bit number"})");
  EXPECT_FALSE(script.Finished());
}

TEST_F(HostTest, ScriptStartsOnceAndAgainOnlyWhenAsked) {
  EXPECT_EQ(script.ReadyLine(), R"({"ready":true,"pid":99,"started":false})");
  EXPECT_EQ(script.Answer("start-again"), R"({"error":"not started yet"})");
  EXPECT_EQ(script.Answer("start"), R"({"started":1})");
  EXPECT_EQ(script.Answer("start"), R"({"error":"already started"})");
  EXPECT_EQ(startCalls, 1);
  EXPECT_EQ(script.Answer("start-again"), R"({"started":2})");
  EXPECT_EQ(startCalls, 2);
  EXPECT_EQ(script.ReadyLine(), R"({"ready":true,"pid":99,"started":true})");
}

TEST_F(HostTest, ScriptPassesTheArgumentsOfFixedAndReportsWhatTheExportsGave) {
  EXPECT_EQ(script.Answer("fixed 5 -9223372036854775808"),
            R"({"wifiClients":41,"scriptActive":1,"activeConnections":43})");
  EXPECT_EQ(controlArguments[0], 5);
  EXPECT_EQ(controlArguments[1], INT64_MIN);
}

TEST_F(HostTest, ScriptTellsClientsHandlesAndQuits) {
  fakeClients = 3000000000U;
  EXPECT_EQ(script.Answer("clients"), R"({"clients":3000000000})");
  EXPECT_EQ(script.Answer("handles"), R"({"handles":17,"threads":5})");
  system.processCounts = []() -> ProcessCounts { throw std::runtime_error("no"); };
  EXPECT_EQ(script.Answer("handles"), R"({"error":"exception","what":"no"})");
  EXPECT_EQ(script.Answer("quit"), R"({"quit":true})");
  EXPECT_TRUE(script.Finished());
}

TEST_F(HostTest, AWalkStartsAgainWhenAnEndpointVanishesUnderIt) {
  vanishAtIdRead = 2;  // Counted two, the second is gone when it is asked for.
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
  EXPECT_THAT(Say("list", false), HasSubstr("invalid vector<T> subscript"));
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

TEST_F(HostTest, PersonSeesBothListsAsATable) {
  fakeSides[1].clear();
  fakeSides[0][1].on = true;
  fakeSides[0][0].available = false;
  EXPECT_EQ(Say("list", true),
            "Sources\n"
            "           -7  off  unavailable  Keys\n"
            "           12  on   available    Caf\xC3\xA9\n"
            "Destinations: none\n");
}

TEST_F(HostTest, PersonSwitchesByNameOnBothSidesUnlessOneIsNamed) {
  EXPECT_EQ(Say("on Keys", true), "source \"Keys\" is on\ndestination \"Keys\" is on\n");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_TRUE(fakeSides[1][0].on);
  // Already on: stays on, is not toggled.
  EXPECT_EQ(Say("on source Keys", true), "source \"Keys\" is on\n");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_EQ(Say("off destination Keys", true), "destination \"Keys\" is off\n");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_EQ(Say("toggle -7", true), "source \"Keys\" is off\n");
  EXPECT_EQ(Say("on Caf\xC3\xA9", true), "source \"Caf\xC3\xA9\" is on\n");
}

TEST_F(HostTest, PersonIsToldWhatCouldNotBeDone) {
  EXPECT_EQ(Say("on Broken", false), "destination \"Broken\" could not be opened\n");
  EXPECT_EQ(Say("on Nobody", false), "No endpoint has the id or name Nobody.\n");
  EXPECT_THAT(Say("on", false), StartsWith("on needs an id or a name"));
  EXPECT_THAT(Say("dance", false), StartsWith("There is no command dance"));
  EXPECT_THAT(Say("list all", false), StartsWith("list takes nothing"));
  EXPECT_THAT(Say("watch soon", false), StartsWith("watch takes a number"));
  EXPECT_EQ(Say("", true), "");
}

TEST_F(HostTest, WatchSaysEachChangeOnceAndEndsOnInterrupt) {
  sleepsUntilInterrupt = 3;
  onSleep = [this] {
    if (sleeps != 1) return;
    fakeSides[0].pop_back();
    fakeSides[0].push_back({55, "New", true, true});
    fakeSides[0][0].available = false;
    fakeClients = 1;
  };
  std::vector<std::string> lines;
  std::string text = Say("watch", true);
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
    lines.push_back(text.substr(10, end - 10));  // Behind the time of day.
    text.erase(0, end + 1);
  }
  EXPECT_THAT(lines, ElementsAre("0 devices connected", "source \"Caf\xC3\xA9\" went",
                                 "source \"Keys\" could not be opened", "source \"New\" came",
                                 "source \"New\" is on", "1 device connected"));
  EXPECT_EQ(sleeps, 3);
}

TEST_F(HostTest, WatchOfNoSecondsLooksOnce) {
  EXPECT_THAT(Say("watch 0", true), EndsWith("0 devices connected\n"));
  EXPECT_EQ(sleeps, 0);
}

TEST_F(HostTest, WhatIsSwitchedOnAtProgramStartIsWatchedAndAFailureIsNot) {
  sleepsUntilInterrupt = 2;
  EXPECT_TRUE(person.DoAndStay("on Keys"));
  EXPECT_EQ(sleeps, 2);
  EXPECT_FALSE(person.DoAndStay("on Broken"));
  EXPECT_TRUE(person.DoAndStay("off Keys"));
  EXPECT_EQ(sleeps, 2);
}

TEST_F(HostTest, StartWaitsUntilTheListsStandStill) {
  fakeSides[0].clear();
  fakeSides[1].clear();
  onSleep = [this] {
    if (sleeps == 3) fakeSides[0].push_back({1, "a"});
    if (sleeps == 4) fakeSides[1].push_back({2, "b"});
  };
  person.Start();
  EXPECT_EQ(startCalls, 1);
  EXPECT_EQ(sleeps, 5);
}

TEST_F(HostTest, StartGivesUpWaitingWhereThereIsNothing) {
  fakeSides[0].clear();
  fakeSides[1].clear();
  person.Start();
  EXPECT_EQ(sleeps, 60);
}

TEST_F(HostTest, HelpNamesEveryCommandAndQuitEnds) {
  std::string help = Say("help", true);
  for (const char* verb : {"list", "on ", "off ", "toggle", "watch", "clients", "help", "quit"}) {
    EXPECT_THAT(help, HasSubstr(std::string("\n  ") + verb));
  }
  EXPECT_FALSE(person.Finished());
  Say("quit", true);
  EXPECT_TRUE(person.Finished());
}

}  // namespace
}  // namespace corvalint::host
