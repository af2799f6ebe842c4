// What a host sees of the shipped DLL: its exports and imports, and the values of its functions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <sstream>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

using harness::Json;
using testing::ElementsAre;
using testing::IsEmpty;

// What binutils say about the DLL's headers.
std::string HeadersOfDll() {
  harness::Process::Setup setup;
  setup.command = {"x86_64-w64-mingw32-objdump", "-p",
                   (harness::WindowsBuildTree() / "corvalint_wrapper.dll").string()};
  harness::Process objdump(setup);
  EXPECT_EQ(objdump.WaitForExit(kPatience), 0) << objdump.Errors();
  return objdump.Output();
}

TEST(Dll, ExportsExactlyItsTwentyNamesUndecorated) {
  std::istringstream headers(HeadersOfDll());
  std::vector<std::string> names;
  bool inTable = false;
  for (std::string line; std::getline(headers, line);) {
    if (line.starts_with("[Ordinal/Name Pointer] Table")) inTable = true;
    const std::size_t bracket = line.find("] ");
    if (!inTable || !line.starts_with("\t[") || bracket == std::string::npos) continue;
    names.push_back(line.substr(bracket + 2));
  }
  EXPECT_THAT(names,
              testing::UnorderedElementsAre(
                  "corvalintServerStart", "corvalintServerWiFiClients", "corvalintServerUSBClients",
                  "corvalintServerScriptActive", "corvalintServerActiveConnections",
                  "corvalintServerGetCountOfSources", "corvalintServerGetCountOfDestinations",
                  "get_unique_id_source", "get_unique_id_destination", "get_source_name_length",
                  "get_dest_name_length", "corvalintServerGetActiveMIDISourceName",
                  "corvalintServerGetActiveMIDIDestName", "set_source_status",
                  "set_destination_status", "get_source_status", "get_destination_status",
                  "get_source_available", "get_destination_available", "initliaze_port_control"));
}

TEST(Dll, ImportsOnlyWindowsOwnModules) {
  std::istringstream headers(HeadersOfDll());
  std::set<std::string> modules;
  const std::string label = "DLL Name: ";
  for (std::string line; std::getline(headers, line);) {
    const std::size_t place = line.find(label);
    if (place == std::string::npos) continue;
    std::string module;
    for (const char letter : line.substr(place + label.size())) {
      module += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    modules.insert(module);
  }
  EXPECT_THAT(modules, testing::IsSubsetOf({"kernel32.dll", "advapi32.dll", "ws2_32.dll",
                                            "winmm.dll", "msvcrt.dll"}));
  EXPECT_THAT(modules, testing::Contains("kernel32.dll"));
}

class Exports : public testing::Test {
 protected:
  std::int64_t Value(harness::Host& host, const std::string& command) {
    const Json answer = host.Ask(command);
    if (!answer.contains("value")) ADD_FAILURE() << command << ": " << answer.dump();
    return answer.value("value", std::int64_t{-1});
  }

  void ExpectOutOfRange(harness::Host& host, const std::string& command, const std::string& text) {
    const Json answer = host.Ask(command);
    EXPECT_EQ(answer.value("error", ""), "out_of_range") << command << ": " << answer.dump();
    EXPECT_EQ(answer.value("what", ""), text) << command;
  }

  void ExpectFixedValues(harness::Host& host) {
    for (const char* command : {"fixed", "fixed 0 0", "fixed -9223372036854775808 -1"}) {
      const Json answer = host.Ask(command);
      EXPECT_EQ(answer.value("wifiClients", 0), 14);
      EXPECT_EQ(answer.value("scriptActive", 0), 1);
      EXPECT_EQ(answer.value("activeConnections", 0), 1337);
    }
  }

  // An id that no endpoint has.
  void ExpectUnknown(harness::Host& host, const std::string& id) {
    for (const std::string side : {"source", "destination"}) {
      EXPECT_EQ(Value(host, "name-length-" + side + " " + id), 0);
      EXPECT_EQ(Value(host, "name-byte-" + side + " " + id + " 0"), 0);
      EXPECT_EQ(Value(host, "name-byte-" + side + " " + id + " -5"), 0);
      EXPECT_EQ(Value(host, side + "-status " + id), 0);
      EXPECT_EQ(Value(host, side + "-available " + id), 0);
      host.Ask("toggle-" + side + " " + id);
    }
  }
};

TEST_F(Exports, AnswerBeforeTheStart) {
  harness::DeskOptions options;
  options.arguments = {"--json", "--no-start"};
  options.open = true;
  harness::Desk desk(options);
  harness::Host& host = desk.GetHost();
  ExpectFixedValues(host);
  EXPECT_EQ(host.Clients(), 0);
  EXPECT_EQ(Value(host, "count-source"), 0);
  EXPECT_EQ(Value(host, "count-destination"), 0);
  ExpectOutOfRange(host, "id-source 0", "invalid vector<T> subscript");
  ExpectOutOfRange(host, "id-destination 0", "invalid vector<T> subscript");
  ExpectUnknown(host, "1");
  ExpectUnknown(host, "-1");
  EXPECT_EQ(host.Console(), "");
  EXPECT_EQ(desk.Log(), "");
  EXPECT_THAT(desk.Control().CallNames(), IsEmpty());
  EXPECT_EQ(host.Ask("start").value("started", 0), 1);
  EXPECT_TRUE(desk.WaitForLog("Subscribed for notifications: 0"));
}

TEST_F(Exports, TellTheListsByPositionAndId) {
  Bridge bridge({"Keys", "Pad"}, {"Synth"});
  harness::Host& host = bridge.GetHost();
  ExpectFixedValues(host);
  EXPECT_EQ(Value(host, "count-source"), 2);
  EXPECT_EQ(Value(host, "count-destination"), 1);
  const std::string keys = std::to_string(Value(host, "id-source 0"));
  const std::string pad = std::to_string(Value(host, "id-source 1"));
  const std::string synth = std::to_string(Value(host, "id-destination 0"));
  EXPECT_NE(keys, pad);
  EXPECT_EQ(Value(host, "name-length-source " + keys), 4);
  EXPECT_EQ(Value(host, "name-length-source " + pad), 3);
  EXPECT_EQ(Value(host, "name-length-destination " + synth), 5);
  EXPECT_EQ(Value(host, "name-byte-source " + pad + " 0"), 'P');
  EXPECT_EQ(Value(host, "name-byte-source " + pad + " 1"), 'a');
  EXPECT_EQ(Value(host, "name-byte-source " + pad + " 2"), 'd');
  EXPECT_EQ(Value(host, "name-byte-destination " + synth + " 4"), 'h');
  for (const char* position : {"2", "-1", "2147483647", "-2147483648"}) {
    ExpectOutOfRange(host, std::string("id-source ") + position, "invalid vector<T> subscript");
  }
  ExpectOutOfRange(host, "id-destination 1", "invalid vector<T> subscript");
  ExpectOutOfRange(host, "id-destination -1", "invalid vector<T> subscript");
  ExpectOutOfRange(host, "name-byte-source " + pad + " 3", "invalid string position");
  ExpectOutOfRange(host, "name-byte-source " + pad + " -1", "invalid string position");
  ExpectOutOfRange(host, "name-byte-destination " + synth + " 5", "invalid string position");
  // Sources and destinations are apart: an id of the one side is unknown to the other.
  EXPECT_EQ(Value(host, "name-length-destination " + keys), 0);
  EXPECT_EQ(Value(host, "name-length-source " + synth), 0);
  EXPECT_EQ(Value(host, "source-available " + keys), 1);
  EXPECT_EQ(Value(host, "destination-available " + synth), 1);
}

TEST_F(Exports, PrintTheStateOfKnownEndpointsOnly) {
  Bridge bridge({"Keys"}, {"Synth"});
  harness::Host& host = bridge.GetHost();
  const std::string keys = std::to_string(Value(host, "id-source 0"));
  const std::string synth = std::to_string(Value(host, "id-destination 0"));
  ASSERT_TRUE(host.WaitForConsole(" || Keys\r\n"));  // the end of the first scan
  const std::size_t before = host.Console().size();
  EXPECT_EQ(Value(host, "source-status " + keys), 0);
  EXPECT_EQ(Value(host, "destination-status " + synth), 0);
  EXPECT_EQ(Value(host, "source-status " + synth), 0);
  EXPECT_EQ(Value(host, "destination-status " + keys), 0);
  host.ToggleSource(static_cast<std::int32_t>(std::stol(keys)));
  EXPECT_EQ(Value(host, "source-status " + keys), 1);
  host.ToggleDestination(static_cast<std::int32_t>(std::stol(synth)));
  EXPECT_EQ(Value(host, "destination-status " + synth), 1);
  // Standard output is in text mode, as that of any Windows program.
  const std::string expected = "falsefalsesource added Keys\r\ntruedestination added Synth\r\ntrue";
  host.WaitForConsole("Synth\r\ntrue");
  EXPECT_EQ(host.Console().substr(before, expected.size()), expected);
}

TEST_F(Exports, GiveNamesBeyondAsciiByteForByte) {
  const std::string input =
      "Kl\xE4"
      "vier \x80\xFF\xA0";
  const std::string output =
      "\xDC"
      "ber-Synth \xD0";
  Bridge bridge({input}, {output});
  const auto sources = bridge.GetHost().Sources();
  const auto destinations = bridge.GetHost().Destinations();
  ASSERT_EQ(sources.size(), 1u);
  ASSERT_EQ(destinations.size(), 1u);
  EXPECT_EQ(sources[0].name, input);
  EXPECT_EQ(destinations[0].name, output);
  EXPECT_EQ(Value(bridge.GetHost(), "name-byte-source " + std::to_string(sources[0].id) + " 2"),
            0xE4);
}

TEST_F(Exports, CountTheConnectedDevices) {
  Bridge bridge;
  EXPECT_EQ(bridge.GetHost().Clients(), 0);
  const auto a = bridge.Plug("device-a");
  EXPECT_EQ(bridge.GetHost().Clients(), 1);
  const auto b = bridge.Plug("device-b");
  EXPECT_EQ(bridge.GetHost().Clients(), 2);
  a->Detach();
  EXPECT_EQ(bridge.GetHost().Clients(), 1);
  a->Attach();
  EXPECT_EQ(bridge.GetHost().Clients(), 2);
  EXPECT_THAT(bridge.Control().Violations(), IsEmpty());
}

}  // namespace
}  // namespace corvalint::windows_test
