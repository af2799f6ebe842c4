// What the shipped DLL prints to standard output at each event, byte for byte and in order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

std::string Line(const std::string& text, std::int64_t number, const std::string& end = "\n") {
  return text + std::to_string(number) + end;
}

std::string ConnectLines(const std::string& device) {
  return "notification(1)\nDevice connected: " + device +
         "\nDevice created\nConnecting to device...\nAMDeviceConnect() = 0x0\n";
}

TEST(ConsoleOfScans, TellsWhatIsFoundWhatIsItsOwnAndWhatIsGone) {
  Bridge bridge({"Keys", "Pad"}, {"Synth", "Organ"});
  harness::Host& host = bridge.GetHost();
  ASSERT_TRUE(host.WaitForConsole(" || Pad\r\n"));
  const std::string first = host.Console();
  const auto sources = host.Sources();
  const auto destinations = host.Destinations();
  ASSERT_EQ(sources.size(), 2u);
  ASSERT_EQ(destinations.size(), 2u);
  const auto found = [](const char* kind, const harness::Endpoint& endpoint) {
    return std::string("found ") + kind + " with unique_id: " + std::to_string(endpoint.id) +
           " || " + endpoint.name + "\r\n";
  };
  EXPECT_EQ(first, found("destination", destinations[0]) + found("destination", destinations[1]) +
                       "NOT a virtual source: Keys\r\n" + found("source", sources[0]) +
                       "NOT a virtual source: Pad\r\n" + found("source", sources[1]));

  const auto a = bridge.Plug("device-a");
  a->PublishSource("App", 77);
  // A name that is cut and beyond ASCII is known again in the form that the desktop shows.
  const std::string cut = "\xE4" + std::string(28, 'm') + "..";
  ASSERT_TRUE(a->App().AnnounceDestination("\xE4" + std::string(31, 'm'), 78) && a->Flush());
  // Once a scan is through, the next one is seconds away.
  const std::size_t published = host.Console().size();
  ASSERT_TRUE(host.GetProcess().WaitForOutput(
      [&](const std::string& all) {
        return all.find("virtual source: " + cut + "\r\n", published) != std::string::npos;
      },
      kPatience));
  const std::size_t mark = host.Console().size();
  bridge.Control().RemoveInput(bridge.Input("Keys"));
  bridge.Control().RemoveOutput(bridge.Output("Synth"));
  const std::string keys = std::to_string(sources[0].id);
  const std::string synth = std::to_string(destinations[0].id);
  const std::string expected =
      "is virtual destination: App\r\nis virtual destination: " + cut +
      "\r\nNOT a virtual source: Pad\r\nvirtual source: App\r\nvirtual source: " + cut +
      "\r\n"
      "sending remove_remote_destination with unique_id: " +
      synth + " || Synth\r\nsending /remove_remote_destination: Synth || " + synth +
      " \r\nsending remove_remote_source with unique_id: " + keys +
      " || Keys\r\nsending /remove_remote_source: Keys || " + keys + " \r\n";
  ASSERT_TRUE(host.WaitForConsole("sending /remove_remote_source: Keys || " + keys + " \r\n"));
  EXPECT_EQ(host.Console().substr(mark), expected);
}

// One desk for all tests of this suite; each uses devices and endpoints of its own.
class Console : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    bridge = std::make_unique<Bridge>(std::vector<std::string>{"Keys"},
                                      std::vector<std::string>{"Synth"});
    keys = bridge->GetHost().Sources().at(0).id;
    synth = bridge->GetHost().Destinations().at(0).id;
  }
  static void TearDownTestSuite() { bridge.reset(); }

  void SetUp() override { console.Restart(); }

  void ExpectConsole(const std::string& expected) {
    EXPECT_EQ(console.After(expected), expected);
    console.Restart();
  }

  void ExpectDeparture(PluggedDevice& plugged) {
    plugged.Detach();
    ExpectConsole("notification(2)\nDevice disconnected: " + plugged.Name() +
                  "\nUsbClientThread::PerformDisconnect()\n"
                  "Server disconnected: -1\nUsbClientThread::PerformDisconnect()\n"
                  "Finished\nUsbClientThread::PerformDisconnect()\n");
    EXPECT_EQ(bridge->GetHost().Clients(), 0);
  }

  static std::unique_ptr<Bridge> bridge;
  static std::int32_t keys;
  static std::int32_t synth;
  ConsoleView console{bridge->GetDesk()};
};

std::unique_ptr<Bridge> Console::bridge;
std::int32_t Console::keys = 0;
std::int32_t Console::synth = 0;

// The first of all, since no device has been there yet: only then does nobody send.
TEST_F(Console, TogglesBeforeTheFirstDeviceAreAnnouncedWithIt) {
  harness::Host& host = bridge->GetHost();
  host.ToggleSource(keys);
  host.ToggleDestination(synth);
  ExpectConsole("source added Keys\ndestination added Synth\n");
  const auto first = bridge->Plug("first");
  ASSERT_TRUE(first->Flush());
  ExpectConsole("notification(1)\nDevice connected: first\n" +
                Line("sending /add_remote_destination: Synth || ", synth, " \n") +
                Line("sending /add_remote_source: Keys || ", keys, " \n") +
                "Device created\nConnecting to device...\nAMDeviceConnect() = 0x0\n");
  host.ToggleSource(keys);
  host.ToggleDestination(synth);
  ExpectConsole(Line("sending /remove_remote_source: Keys || ", keys, " \n") +
                Line("sending /remove_remote_destination: Synth || ", synth, " \n"));
  host.ToggleSource(keys);
  host.ToggleDestination(synth);
  ExpectConsole("source added Keys\n" + Line("sending /add_remote_source: Keys || ", keys, " \n") +
                Line("sending /add_remote_destination: Synth || ", synth, " \n") +
                "destination added Synth\n");
  host.ToggleSource(keys);
  host.ToggleDestination(synth);
  ExpectConsole(Line("sending /remove_remote_source: Keys || ", keys, " \n") +
                Line("sending /remove_remote_destination: Synth || ", synth, " \n"));
  ExpectDeparture(*first);
}

TEST_F(Console, ArrivalAndDepartureOfADevice) {
  const auto plugged = bridge->Plug("come and go");
  ASSERT_TRUE(plugged->Flush());
  ExpectConsole(ConnectLines("come and go"));
  ExpectDeparture(*plugged);
}

TEST_F(Console, StreamsThatEndAndComeBack) {
  const auto plugged = bridge->Plug("cut");
  ASSERT_TRUE(plugged->Flush());
  console.Restart();
  plugged->App().Cut(device::CutHow::kFinish);
  ASSERT_TRUE(plugged->App().WaitForStream(2, kPatience));
  ExpectConsole("Server disconnected: 0\nUsbClientThread::PerformDisconnect()\n");
  plugged->App().Cut(device::CutHow::kReset);
  ASSERT_TRUE(plugged->App().WaitForStream(3, kPatience));
  // Whether a reset reads as an end or as a failure is the system's business.
  EXPECT_THAT(console.Text(), testing::MatchesRegex("Server disconnected: (0|-1)\n"
                                                    "UsbClientThread::PerformDisconnect..\n"));
  console.Restart();
  ASSERT_TRUE(plugged->App().SendRaw({0, 0, 0, 0}));
  ASSERT_TRUE(plugged->App().WaitForStream(4, kPatience));
  ExpectConsole("Invalid packet length 0\nUsbClientThread::PerformDisconnect()\n");
  ASSERT_TRUE(plugged->App().SendRaw({0, 2, 0, 1}));
  ASSERT_TRUE(plugged->App().WaitForStream(5, kPatience));
  ExpectConsole("Invalid packet length 131073\nUsbClientThread::PerformDisconnect()\n");
  ASSERT_TRUE(plugged->App().SendRaw({0xFF, 0xFF, 0xFF, 0xFF}));
  ASSERT_TRUE(plugged->App().WaitForStream(6, kPatience));
  ExpectConsole("Invalid packet length -1\nUsbClientThread::PerformDisconnect()\n");
  ASSERT_TRUE(plugged->Flush());
  ExpectDeparture(*plugged);
}

TEST_F(Console, EndpointsOfADevice) {
  const auto plugged = bridge->Plug("app");
  ASSERT_TRUE(plugged->Flush());
  console.Restart();
  device::SimulatedDevice& app = plugged->App();
  const auto handle = [&](bool sent) { return sent && plugged->Flush(); };
  ASSERT_TRUE(handle(app.AnnounceSource("Pad", 77)));
  ExpectConsole("receiving add_remote_source: Pad || 77\nsending /add_remote_source: Pad || 77 \n");
  ASSERT_TRUE(handle(app.AnnounceSource("Pad", 77)));
  ExpectConsole("receiving add_remote_source: Pad || 77\n");
  ASSERT_TRUE(handle(app.AnnounceDestination("Pad", -3)));
  ExpectConsole(
      "receiving add_remote_destination: Pad || -3\n"
      "sending /add_remote_destination: Pad || -3 \n");
  ASSERT_TRUE(handle(app.WithdrawDestination("Pad", 77)));
  ExpectConsole("receiving remove_remote_destination: Pad || 77\n");
  ASSERT_TRUE(handle(app.WithdrawDestination("Pad", -3)));
  ExpectConsole(
      "receiving remove_remote_destination: Pad || -3\n"
      "sending /remove_remote_destination: Pad || -3 \n");
  ASSERT_TRUE(handle(app.WithdrawSource("another name", 77)));
  ExpectConsole(
      "receiving remove_remote_source: another name || 77\n"
      "sending /remove_remote_source: another name || 77 \n");
  ASSERT_TRUE(handle(app.AnnounceSource("100%s\xC3\xA9\n", device::EndpointId("42"))));
  ExpectConsole(
      "receiving add_remote_source: 100%s\xC3\xA9\n || 42\n"
      "sending /add_remote_source: 100%s\xC3\xA9\n || 42 \n");
  ASSERT_TRUE(handle(app.WithdrawSource("x", device::EndpointId(" 42nd"))));
  ExpectConsole(
      "receiving remove_remote_source: x || 42\nsending /remove_remote_source: x || 42 \n");
  ExpectDeparture(*plugged);
}

TEST_F(Console, OutputsThatFail) {
  const auto plugged = bridge->Plug("player");
  ASSERT_TRUE(plugged->Flush());
  console.Restart();
  const auto play = [&] { return plugged->App().SendMidi("Synth", synth, {0x90, 1, 2}); };
  ASSERT_TRUE(play() && plugged->Flush());
  ExpectConsole("MMSYSERR_INVALHANDLE\n");
  bridge->GetHost().ToggleDestination(synth);
  ExpectConsole(Line("sending /add_remote_destination: Synth || ", synth, " \n") +
                "destination added Synth\n");
  // Codes without a text of their own are silent; the last line shows that nothing came before it.
  for (const std::int64_t code : {harness::kNoDriver, harness::kInvalidParameter}) {
    bridge->Control().Fail("midiOutLongMsg", code, {.times = 1});
    ASSERT_TRUE(play() && plugged->Flush());
    bridge->Control().ClearRules("midiOutLongMsg");
  }
  ExpectConsole("MMSYSERR_INVALPARAM\n");
  bridge->Control().Fail("midiOutPrepareHeader", harness::kNoMemory, {.times = 1});
  ASSERT_TRUE(play() && plugged->Flush());
  ExpectConsole("MMSYSERR_NOMEM\n");
  bridge->Control().ClearRules("midiOutPrepareHeader");
  bridge->GetHost().ToggleDestination(synth);
  ExpectConsole(Line("sending /remove_remote_destination: Synth || ", synth, " \n"));
  ExpectDeparture(*plugged);
}

TEST_F(Console, EndpointsThatDoNotOpenAreNotAdded) {
  bridge->Control().Fail("midiInOpen", harness::kAllocated, {.times = 1});
  bridge->GetHost().ToggleSource(keys);
  bridge->Control().Fail("midiOutOpen", harness::kAllocated, {.times = 1});
  bridge->GetHost().ToggleDestination(synth);
  bridge->Control().ClearRules("midiInOpen");
  bridge->Control().ClearRules("midiOutOpen");
  bridge->GetHost().ToggleSource(keys);
  bridge->GetHost().ToggleSource(keys);
  ExpectConsole("source added Keys\n" + Line("sending /add_remote_source: Keys || ", keys, " \n") +
                Line("sending /remove_remote_source: Keys || ", keys, " \n"));
}

TEST_F(Console, NotificationsThatAreNoArrival) {
  harness::DeskControl& control = bridge->Control();
  control.SetDevice("odd", {.identifier = "odd"});
  control.Notify("odd", 3);
  control.Notify("odd", 0);
  control.Notify("null", 1);
  control.Notify("null", 2);
  control.SetDevice("unusable", {.identifier = "unusable", .productWord = 0});
  control.Notify("unusable", 1);
  control.Notify("odd", 2);  // departs without having come
  ASSERT_TRUE(control.WaitForNotifications());
  ExpectConsole(
      "notification(3)\nnotification(0)\nnotification(1)\ninvalid product id\n"
      "notification(2)\ninvalid product id\nnotification(1)\ninvalid product id\n"
      "notification(2)\nDevice disconnected: odd\n");
  EXPECT_EQ(bridge->GetHost().Clients(), 0);
}

TEST_F(Console, DevicesBeingRestored) {
  for (const char* which :
       {"dfu-connect", "recovery-connect", "dfu-disconnect", "recovery-disconnect"}) {
    bridge->Control().Restore(which);
  }
  ASSERT_TRUE(bridge->Control().WaitForNotifications());
  ExpectConsole(
      "Detected a DFU connection\nDetected a Recovery Connection\n"
      "Detected a DFU disconnection\nDetected a Recovery Disconnection\n");
}

TEST_F(Console, DevicesWithoutAnIdentifierHaveAnEmptyName) {
  harness::DeskControl& control = bridge->Control();
  control.SetDevice("nameless", {.withoutIdentifier = true, .productWord = 1});
  control.Notify("nameless", 2);
  ASSERT_TRUE(control.WaitForNotifications());
  ExpectConsole("notification(2)\nDevice disconnected: \n");
}

// Each at a desk of its own: a device that was not connected is tried again seconds later, and that
// prints again.
void ExpectAnswered(std::uint32_t answer, const std::string& expected) {
  Bridge bridge;
  ConsoleView console(bridge.GetDesk());
  bridge.Control().SetDevice(
      "odd", {.identifier = "odd", .connectionId = 0xAB, .connectAnswers = {answer}});
  bridge.Control().Attach("odd");
  const std::string all = "notification(1)\nDevice connected: odd\nDevice created\n" + expected;
  EXPECT_THAT(console.After(all), testing::StartsWith(all));
}

TEST(ConsoleOfConnections, EachAnswerOfTheDeviceLibrary) {
  ExpectAnswered(0xE8000065,
                 "Connecting to device...\nAMDeviceConnect() = 0xe8000065\nmuxConnTmp = AB\n");
  ExpectAnswered(0xE8000028,
                 "Connecting to device...\nAMDeviceConnect() = 0xe8000028\n"
                 "found iDevice in Recovery Mode - muxConnTmp = AB\n");
  ExpectAnswered(0xE800000B,
                 "Connecting to device...\nAMDeviceConnect() = 0xe800000b\n"
                 "AMDeviceConnect = -402653173\n");
}

}  // namespace
}  // namespace corvalint::windows_test
