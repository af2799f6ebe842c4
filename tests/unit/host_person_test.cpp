// The console host as a person uses it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "host/exit_codes.h"
#include "host/help.h"
#include "host/person.h"
#include "unit/support/host_fake.h"

namespace corvalint::host {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(HostTest, PersonSeesBothListsAsATable) {
  fakeSides[1].clear();
  fakeSides[0][1].on = true;
  fakeSides[0][0].available = false;
  EXPECT_EQ(Say("list", kExitDone),
            "Sources\n"
            "           -7  off  unavailable  Keys\n"
            "           12  on   available    Caf\xC3\xA9\n"
            "Destinations: none\n");
}

TEST_F(HostTest, NoNameIsCutInATerminalOfTwentyColumns) {
  fakeSides[0][0] = {-2147483647, "A name of thirty-one characters", true};
  fakeSides[1] = {{30, "Keys", false, false}};
  columns = 20;
  EXPECT_EQ(Say("list", kExitDone),
            "Sources\n"
            " A name of thirty-one characters\n"
            "  -2147483647 on\n"
            " Caf\xC3\xA9\n"
            "  12 off\n"
            "Destinations\n"
            " Keys\n"
            "  30 off !\n");
  columns = 48;
  EXPECT_THAT(Say("list", kExitDone), HasSubstr("unavailable  Keys"));
  columns = 47;
  EXPECT_THAT(Say("list", kExitDone), HasSubstr("30 off !"));
}

TEST_F(HostTest, PersonSwitchesByNameOrId) {
  EXPECT_EQ(Say("on source Keys", kExitDone), "source \"Keys\" is on\n");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_FALSE(fakeSides[1][0].on);
  // Already on: stays on, is not toggled.
  EXPECT_EQ(Say("on both Keys", kExitDone), "source \"Keys\" is on\ndestination \"Keys\" is on\n");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_EQ(Say("off destination Keys", kExitDone), "destination \"Keys\" is off\n");
  EXPECT_TRUE(fakeSides[0][0].on);
  EXPECT_EQ(Say("toggle -7", kExitDone), "source \"Keys\" is off\n");
  EXPECT_EQ(Say("on Caf\xC3\xA9", kExitDone), "source \"Caf\xC3\xA9\" is on\n");
}

TEST_F(HostTest, ANameOfTwoEndpointsSwitchesNone) {
  EXPECT_EQ(Say("on Keys", kExitAmbiguous),
            "5: Keys is a source and a destination: write on source, on destination or on both "
            "before it\n");
  EXPECT_FALSE(fakeSides[0][0].on);
  EXPECT_FALSE(fakeSides[1][0].on);
  fakeSides[0].push_back({77, "Caf\xE9"});
  EXPECT_EQ(Say("on Caf\xC3\xA9", kExitAmbiguous),
            "5: several endpoints are called Caf\xC3\xA9: use an id\n");
  EXPECT_FALSE(fakeSides[0][1].on);
  fakeSides[1].push_back({12, "Twin of an id"});
  EXPECT_THAT(Say("off 12", kExitAmbiguous), HasSubstr("12 is a source and a destination"));
}

TEST_F(HostTest, PersonIsToldWhatCouldNotBeDone) {
  EXPECT_EQ(Say("on Broken", kExitFailed), "1: destination \"Broken\" could not be opened\n");
  EXPECT_EQ(Say("on Nobody", kExitNoEndpoint), "4: no endpoint has the id or name Nobody\n");
  EXPECT_EQ(Say("off 999", kExitNoEndpoint), "4: no endpoint has the id or name 999\n");
  // The source is known, the destination is asked for.
  EXPECT_EQ(Say("on destination -7", kExitNoEndpoint), "4: no endpoint has the id or name -7\n");
  EXPECT_EQ(Say("dance", kExitUsage), "2: unknown command dance; help says more\n");
  EXPECT_THAT(Say("doctor", kExitUsage), HasSubstr("starts the bridge itself"));
  EXPECT_EQ(Say("", kExitDone), "");
}

TEST_F(HostTest, BothOfANameEndWithTheFailureOfOne) {
  fakeSides[1][0].opens = false;
  EXPECT_EQ(Say("on both Keys", kExitFailed),
            "source \"Keys\" is on\n1: destination \"Keys\" could not be opened\n");
}

TEST_F(HostTest, AnswersInDocumentsAreOneObjectALine) {
  Person writer(wrapper, system, MakeOutput(true));
  fakeClients = 2;
  fakeSides[1].clear();
  EXPECT_EQ(writer.Do("list"), kExitDone);
  EXPECT_EQ(writer.Do("on source Keys"), kExitDone);
  EXPECT_EQ(writer.Do("clients"), kExitDone);
  printed.replace(printed.find("\"time\":\"") + 8, 19, "T");
  EXPECT_EQ(printed, R"({"kind":"list","devices":2,"sources":[{"position":0,"id":-7,"name":"Keys",)"
                     R"("nameHex":"4b657973","on":false,"available":true},{"position":1,"id":12,)"
                     "\"name\":\"Caf\xC3\xA9\""
                     R"(,"nameHex":"436166e9","on":false,"available":true}],"destinations":[]})"
                     "\n"
                     R"({"kind":"switched","side":"source","id":-7,"name":"Keys","on":true})"
                     "\n"
                     R"({"kind":"devices","time":"T","devices":2})"
                     "\n");
}

TEST_F(HostTest, WatchInDocumentsTellsTheListThenEachChange) {
  sleepsUntilInterrupt = 2;
  onSleep = [] { fakeSides[1][1].available = false; };
  Person writer(wrapper, system, MakeOutput(true));
  EXPECT_EQ(writer.Do("watch"), kExitDone);
  EXPECT_THAT(printed, StartsWith(R"({"kind":"list","devices":0,)"));
  EXPECT_THAT(printed, HasSubstr("]}\n{\"kind\":\"change\",\"time\":\"2"));
  EXPECT_THAT(printed, EndsWith(R"(","change":"unavailable","side":"destination","id":31,)"
                                R"("name":"Broken"})"
                                "\n"));
  EXPECT_EQ(std::ranges::count(printed, '\n'), 2);
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
  std::string text = Say("watch", kExitDone);
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
  EXPECT_THAT(Say("watch 0", kExitDone), EndsWith("0 devices connected\n"));
  EXPECT_EQ(sleeps, 0);
}

TEST_F(HostTest, WhatIsSwitchedOnAtProgramStartIsWatchedAndAFailureIsNot) {
  sleepsUntilInterrupt = 2;
  EXPECT_EQ(person.DoAndStay("on source Keys"), kExitDone);
  EXPECT_EQ(sleeps, 2);
  EXPECT_EQ(person.DoAndStay("on Broken"), kExitFailed);
  EXPECT_EQ(person.DoAndStay("off source Keys"), kExitDone);
  EXPECT_EQ(sleeps, 2);
}

TEST_F(HostTest, StartWaitsForTheFirstListThatIsNotEmpty) {
  for (const int side : {0, 1}) {
    fakeSides[0].clear();
    fakeSides[1].clear();
    sleeps = 0;
    onSleep = [this, side] {
      if (sleeps == 3) fakeSides[side].push_back({1, "a"});
    };
    person.Start();
    EXPECT_EQ(startCalls, side + 1);
    EXPECT_EQ(sleeps, 3);
  }
}

TEST_F(HostTest, ADeviceIsGivenAMomentToBeToldOfAfterTheStart) {
  onSleep = [this] {
    if (sleeps == 5) fakeClients = 1;
  };
  EXPECT_EQ(Say("clients", kExitDone), "1 device connected\n");
  EXPECT_EQ(sleeps, 5);
  fakeClients = 0;
  EXPECT_EQ(Say("clients", kExitDone), "0 devices connected\n");
  EXPECT_EQ(sleeps, 5);
  Person writer(wrapper, system, MakeOutput(true));
  onSleep = [this] {
    if (sleeps == 7) fakeClients = 2;
  };
  printed.clear();
  EXPECT_EQ(writer.Do("list"), kExitDone);
  EXPECT_THAT(printed, StartsWith(R"({"kind":"list","devices":2,)"));
  EXPECT_EQ(sleeps, 7);
}

TEST_F(HostTest, WhereThereIsNoDeviceOneSecondIsWaitedAndOnlyOnce) {
  EXPECT_EQ(Say("clients", kExitDone), "0 devices connected\n");
  EXPECT_EQ(sleeps, 40);
  EXPECT_EQ(Say("clients", kExitDone), "0 devices connected\n");
  EXPECT_EQ(sleeps, 40);
  // The table does not tell of devices.
  Person reader(wrapper, system, MakeOutput(false));
  reader.Do("list");
  EXPECT_EQ(sleeps, 40);
}

TEST_F(HostTest, StartGivesUpWaitingWhereThereIsNothing) {
  fakeSides[0].clear();
  fakeSides[1].clear();
  person.Start();
  EXPECT_EQ(sleeps, 100);
  // Longer than a device is waited for.
  EXPECT_EQ(Say("clients", kExitDone), "0 devices connected\n");
  EXPECT_EQ(sleeps, 100);
}

TEST_F(HostTest, HelpNamesEveryCommandAndExitCodeAndQuitEnds) {
  std::string help = Say("help", kExitDone);
  for (const char* verb :
       {"list", "on ", "off ", "toggle", "watch", "clients", "doctor", "help", "quit"}) {
    EXPECT_THAT("\n" + help, HasSubstr(std::string("\n  ") + verb));
  }
  EXPECT_THAT(HelpText(), HasSubstr(help));
  for (int code = kExitDone; code <= kExitBroken; ++code) {
    EXPECT_THAT(HelpText(), HasSubstr("\n  " + std::to_string(code) + "  "));
  }
  EXPECT_FALSE(person.Finished());
  Say("quit", kExitDone);
  EXPECT_TRUE(person.Finished());
}

TEST(HelpTest, NoLineIsLongerThanATerminal) {
  std::istringstream lines(HelpText());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

}  // namespace
}  // namespace corvalint::host
