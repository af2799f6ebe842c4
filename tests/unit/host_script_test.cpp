// The console host as a script drives it.

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "host/script.h"
#include "unit/support/host_fake.h"

namespace corvalint::host {
namespace {

class ScriptTest : public HostTest {
 protected:
  Script script{wrapper, system};
};

TEST_F(ScriptTest, ListsEndpointsWithNameAsTextAndAsBytes) {
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

TEST_F(ScriptTest, ReachesEachExportOfASide) {
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
  fakeSides[1].pop_back();
  EXPECT_EQ(script.Answer("count-destination"), R"({"value":1})");
}

TEST_F(ScriptTest, ReportsARangeFailureWithItsText) {
  EXPECT_EQ(script.Answer("id-source 2"),
            R"({"error":"out_of_range","what":"invalid vector<T> subscript"})");
  EXPECT_EQ(script.Answer("name-byte-destination 30 4"),
            R"({"error":"out_of_range","what":"invalid string position"})");
  EXPECT_EQ(script.Answer("name-byte-source 999 4"), R"({"value":0})");
}

TEST_F(ScriptTest, RefusesWhatItDoesNotUnderstand) {
  EXPECT_EQ(script.Answer("frobnicate"), R"({"error":"unknown command"})");
  EXPECT_EQ(script.Answer(""), R"({"error":"unknown command"})");
  EXPECT_EQ(script.Answer("source"), R"({"error":"unknown command"})");
  EXPECT_EQ(script.Answer("id-source"), R"({"error":"expected 1 arguments, got 0"})");
  EXPECT_EQ(script.Answer("name-byte-source 1"), R"({"error":"expected 2 arguments, got 1"})");
  EXPECT_EQ(script.Answer("fixed 1"), R"({"error":"expected 2 arguments, got 1"})");
  EXPECT_EQ(script.Answer("sources 1"), R"({"error":"expected 0 arguments, got 1"})");
  EXPECT_EQ(script.Answer("quit 1"), R"({"error":"expected 0 arguments, got 1"})");
  EXPECT_EQ(script.Answer("id-source one"), R"({"error":"argument 1 is not a 32-bit number"})");
  EXPECT_FALSE(script.Finished());
}

TEST_F(ScriptTest, StartsOnceAndAgainOnlyWhenAsked) {
  EXPECT_EQ(script.ReadyLine(), R"({"ready":true,"pid":99,"started":false})");
  EXPECT_EQ(script.Answer("start-again"), R"({"error":"not started yet"})");
  EXPECT_EQ(script.Answer("start"), R"({"started":1})");
  EXPECT_EQ(script.Answer("start"), R"({"error":"already started"})");
  EXPECT_EQ(startCalls, 1);
  EXPECT_EQ(script.Answer("start-again"), R"({"started":2})");
  EXPECT_EQ(startCalls, 2);
  EXPECT_EQ(script.ReadyLine(), R"({"ready":true,"pid":99,"started":true})");
}

TEST_F(ScriptTest, PassesTheArgumentsOfFixedAndReportsWhatTheExportsGave) {
  EXPECT_EQ(script.Answer("fixed 5 -9223372036854775808"),
            R"({"wifiClients":41,"scriptActive":1,"activeConnections":43})");
  EXPECT_EQ(controlArguments[0], 5);
  EXPECT_EQ(controlArguments[1], INT64_MIN);
}

TEST_F(ScriptTest, TellsClientsHandlesAndQuits) {
  fakeClients = 3000000000U;
  EXPECT_EQ(script.Answer("clients"), R"({"clients":3000000000})");
  EXPECT_EQ(script.Answer("handles"), R"({"handles":17,"threads":5})");
  system.processCounts = []() -> ProcessCounts { throw std::runtime_error("no"); };
  EXPECT_EQ(script.Answer("handles"), R"({"error":"exception","what":"no"})");
  EXPECT_EQ(script.Answer("quit"), R"({"quit":true})");
  EXPECT_TRUE(script.Finished());
}

}  // namespace
}  // namespace corvalint::host
