// The stand-ins and the harness against a small program that uses them as the product does.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "harness/desk.h"
#include "harness/latencies.h"

namespace corvalint::harness {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DeskSelftest : public testing::Test {
 protected:
  static DeskOptions Options() {
    DeskOptions options;
    options.program = "desk/corvalint-desk-selftest.exe";
    options.arguments = {};
    options.files = {};
    return options;
  }

  long long Do(const std::string& command) {
    const Json answer = desk.GetHost().Ask(command);
    if (!answer.contains("value")) ADD_FAILURE() << command << ": " << answer.dump();
    return answer.value("value", -1LL);
  }

  std::vector<std::string> Heard() {
    std::vector<std::string> texts;
    const Json answer = desk.GetHost().Ask("heard");
    for (const Json& hex : answer.at("heard")) {
      const Bytes bytes = BytesFromHex(hex.get<std::string>());
      texts.emplace_back(bytes.begin(), bytes.end());
    }
    return texts;
  }

  // Opens, fills and starts the input that stands first in the list.
  void StartInput() {
    ASSERT_EQ(Do("open-input 0"), 0);
    ASSERT_EQ(Do("queue"), 0);
    ASSERT_EQ(Do("start"), 0);
    ASSERT_THAT(Heard(), ElementsAre("open"));
  }

  void InjectAndWait(int id, const std::vector<InputItem>& items, const Pacing& pacing = {}) {
    const auto result = control.WaitForJob(control.Inject(id, items, pacing));
    ASSERT_TRUE(result.has_value());
    ASSERT_EQ(result->dropped, 0u);
  }

  Desk desk{Options()};
  DeskControl& control = desk.Control();
};

TEST_F(DeskSelftest, ListsDevicesAndPortsByTheirAnsiNames) {
  control.AddInput("Keys");
  control.AddOutput("Synth \xE9");
  const int removed = control.AddOutput("Gone");
  control.RemoveOutput(removed);
  control.Open();
  EXPECT_EQ(control.AnsiCodePage(), 1252u);
  EXPECT_EQ(Do("libraries"), 4);
  EXPECT_EQ(Do("create-port Pad\xE4"), 0);
  EXPECT_EQ(Do("names"), kBadDeviceId);
  EXPECT_THAT(Heard(), ElementsAre("in Keys", "in Pad\xE4", "out Synth \xE9", "out Pad\xE4"));
  const auto port = control.WaitForPort(Widened("Pad\xE4"));
  ASSERT_TRUE(port.has_value());
  EXPECT_EQ(Do("close-port"), 0);
  EXPECT_TRUE(control.WaitForPortClosed(port->id));
  EXPECT_EQ(Do("names"), kBadDeviceId);
  EXPECT_THAT(Heard(), ElementsAre("in Keys", "out Synth \xE9"));
  EXPECT_EQ(desk.GetHost().Quit(), 7);
}

TEST_F(DeskSelftest, CallsWaitUntilTheDeskIsOpen) {
  control.AddOutput("Early");
  std::thread opener([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    control.AddOutput("Late");
    control.Open();
  });
  Do("names");
  opener.join();
  EXPECT_THAT(Heard(), ElementsAre("out Early", "out Late"));
}

TEST_F(DeskSelftest, DeliversInputOfEveryKind) {
  const int id = control.AddInput("Keys");
  control.Open();
  StartInput();
  EXPECT_TRUE(control.WaitForInputStarted(id));
  InjectAndWait(id,
                {ItemOf({0x90, 0x40, 0x7F}),
                 {InputItem::Kind::kShortError, {0x91, 1, 2}},
                 {InputItem::Kind::kLong, {0xF0, 1, 2, 3, 0xF7}},
                 {InputItem::Kind::kLongError, {0xF0, 9}}},
                {.piece = 3});
  EXPECT_THAT(Heard(), ElementsAre("short 90407f", "short-error 910102", "long f00102", "long 03f7",
                                   "long-error f009"));
  EXPECT_EQ(Do("stop"), 0);
  const auto late = control.WaitForJob(control.Inject(id, {ItemOf({0x90, 1, 1})}));
  ASSERT_TRUE(late.has_value());
  EXPECT_EQ(late->dropped, 1u);
}

TEST_F(DeskSelftest, ResetGivesBuffersBackAndCloseRefusesBefore) {
  const int id = control.AddInput("Keys");
  control.Open();
  StartInput();
  InjectAndWait(id, {{InputItem::Kind::kPartial, {0xF0, 5}}});
  EXPECT_THAT(Heard(), IsEmpty());
  EXPECT_EQ(Do("close-input"), kStillPlaying);
  EXPECT_EQ(Do("unprepare"), kStillPlaying);
  Do("requeue 0");
  EXPECT_EQ(Do("reset"), 0);
  EXPECT_THAT(Heard(), ElementsAre("long f005", "long ", "long ", "long "));
  EXPECT_EQ(Do("unprepare"), 0);
  EXPECT_EQ(Do("close-input"), 0);
  EXPECT_THAT(Heard(), ElementsAre("close"));
  EXPECT_THAT(control.Violations(), IsEmpty());
  EXPECT_EQ(Do("start"), kInvalidHandle);
  EXPECT_THAT(control.Violations(), ElementsAre("midiInStart on a closed handle"));
}

TEST_F(DeskSelftest, ResetAndClosePortWaitForACallbackInProgress) {
  const int id = control.AddInput("Keys");
  control.Open();
  StartInput();
  Do("slow 150");
  control.Inject(id, {ItemOf({0x90, 1, 1})});
  while (Do("inside") == 0) {
  }
  EXPECT_EQ(Do("reset"), 0);  // no callback inside any more
  EXPECT_EQ(Heard().front(), "short 900101");

  ASSERT_EQ(Do("libraries"), 4);
  ASSERT_EQ(Do("create-port Pad"), 0);
  const int port = control.Ports().front().id;
  const int job = control.Play(port, {{0x91, 1, 1}, {0x92, 1, 1}});
  while (Do("inside") == 0) {
  }
  EXPECT_EQ(Do("close-port"), 0);
  EXPECT_THAT(Heard(), ElementsAre("port 910101"));
  EXPECT_EQ(control.WaitForJob(job)->delivered, 1u);
}

TEST_F(DeskSelftest, AnUnpluggedInputIsSilentAndAnswersAsTold) {
  const int id = control.AddInput("Keys");
  control.Open();
  StartInput();
  const int job = control.Inject(id, {ItemOf({0x90, 1, 1})}, {.paceUs = 1000, .repeat = 100000});
  control.RemoveInput(id, kNoDriver);
  EXPECT_TRUE(control.WaitForJob(job).has_value());
  EXPECT_EQ(Do("reset"), kNoDriver);
}

TEST_F(DeskSelftest, OutputsRecordAndKeepBuffersAsLongAsTold) {
  const int id = control.AddOutput("Synth");
  control.Open();
  ASSERT_EQ(Do("open-output 0"), 0);
  EXPECT_EQ(Do("send-unprepared"), kUnprepared);
  EXPECT_EQ(Do("null-output"), kInvalidHandle);
  EXPECT_EQ(Do("send-long abc"), 0);
  EXPECT_EQ(Do("unprepare-output"), 0);
  control.SetStuck(id, true);
  EXPECT_EQ(Do("send-long defg"), 0);
  EXPECT_EQ(Do("unprepare-output"), kStillPlaying);
  EXPECT_EQ(Do("close-output"), kStillPlaying);
  EXPECT_EQ(Do("reset-output"), 0);
  EXPECT_EQ(Do("unprepare-output"), 0);
  control.Fail("midiOutUnprepareHeader", kStillPlaying, {.from = 2, .times = 2});
  EXPECT_EQ(Do("unprepare-output"), 0);
  EXPECT_EQ(Do("unprepare-output"), kStillPlaying);
  EXPECT_EQ(Do("unprepare-output"), kStillPlaying);
  EXPECT_EQ(Do("unprepare-output"), 0);
  ASSERT_TRUE(control.WaitForOutputMessages(id, 2));
  const auto messages = control.OutputMessages(id);
  EXPECT_EQ(messages[0].bytes, (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(messages[1].bytes, (Bytes{'d', 'e', 'f', 'g'}));
  EXPECT_EQ(Do("close-output"), 0);
}

TEST_F(DeskSelftest, APortNameCanBeTakenOnlyOnce) {
  control.OccupyPortName(u"Taken");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  constexpr long long kAliasExists = 1379;
  EXPECT_EQ(Do("create-port Taken"), kAliasExists);
  EXPECT_EQ(Do("create-port Free"), 0);
  const int port = control.Ports().front().id;
  EXPECT_EQ(Do("send-port xyz 2"), 2);
  EXPECT_TRUE(control.WaitForPortMessages(port, 2));
  EXPECT_EQ(Do("close-port"), 0);
  EXPECT_EQ(Do("send-port xyz 1"), 0);
  EXPECT_THAT(control.Violations(), ElementsAre("virtualMIDISendData on a closed port"));
}

TEST_F(DeskSelftest, WhatThePortsOwnerSendsReachesItsInputMessageByMessage) {
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  ASSERT_EQ(Do("create-port Pad"), 0);
  EXPECT_EQ(Do("play-port 903c64"), 1);  // nobody listens yet
  StartInput();
  // A stray byte, running status, a clock byte within SysEx, one byte, two, and what is cut off.
  EXPECT_EQ(Do("play-port 05903c643c00f001f802f7f6c005b007"), 1);
  EXPECT_EQ(Do("play-port f0030490"), 1);
  EXPECT_EQ(Do("play-port f00506"), 1);
  std::vector<std::string> heard;
  while (heard.empty() || heard.back() != "long f00506") {
    for (std::string& text : Heard()) heard.push_back(std::move(text));
  }
  EXPECT_THAT(heard, ElementsAre("short 903c64", "short 903c00", "short f80000", "long f00102f7",
                                 "short f60000", "short c00500", "long f00506"));
  EXPECT_EQ(Do("close-port"), 0);
  EXPECT_THAT(control.Violations(), IsEmpty());
}

// One loopback connection that gives back what it gets.
std::thread EchoOnce(std::uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener, 1), 0);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
  return std::thread([listener] {
    const int stream = accept(listener, nullptr, nullptr);
    char bytes[5];
    EXPECT_EQ(recv(stream, bytes, sizeof(bytes), MSG_WAITALL), 5);
    EXPECT_EQ(send(stream, bytes, sizeof(bytes), MSG_NOSIGNAL), 5);
    close(stream);
    close(listener);
  });
}

TEST_F(DeskSelftest, DevicesAreAnnouncedOnceAndTheirStreamsReachTheLoopbackPort) {
  std::uint16_t tcpPort = 0;
  std::thread echo = EchoOnce(tcpPort);
  control.SetDevice("phone", {.identifier = "udid-1", .connectionId = 5, .tcpPort = tcpPort});
  control.Attach("phone");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  EXPECT_EQ(Do("restore"), 0);
  EXPECT_EQ(Do("subscribe"), 0);
  EXPECT_TRUE(control.WaitForEvent([](const auto& event) { return event == "announced phone"; }));
  EXPECT_EQ(Do("identifier"), 1);
  const ProcessCounts before = control.Counts();
  EXPECT_EQ(Do("stream"), 0);
  echo.join();
  EXPECT_EQ(control.Counts().sockets, before.sockets);
  control.Detach("phone");
  control.Restore("dfu-connect");
  ASSERT_TRUE(control.WaitForNotifications());
  EXPECT_THAT(Heard(), ElementsAre("notification 1", "identifier udid-1", "stream hello",
                                   "notification 2", "dfu-connect"));
  EXPECT_THAT(control.Violations(), IsEmpty());
}

TEST_F(DeskSelftest, AnswersOfDevicesFollowTheirScript) {
  control.SetDevice("phone", {.withoutIdentifier = true,
                              .connectionId = 5,
                              .connectAnswers = {0xE8000028, 0},
                              .streamAnswers = {3}});
  control.Attach("phone");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  ASSERT_EQ(Do("subscribe"), 0);
  EXPECT_TRUE(control.WaitForEvent([](const auto& event) { return event == "announced phone"; }));
  EXPECT_EQ(Do("identifier"), 0);
  EXPECT_EQ(Do("stream"), -1);
  EXPECT_EQ(Do("stream"), 3);
  const auto names = control.CallNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "AMDeviceConnect"), 2);
  EXPECT_EQ(control.CallCounts()["USBMuxConnectByPort"], 1u);
}

TEST_F(DeskSelftest, HeldCallsStayInsideUntilReleased) {
  control.AddOutput("Synth");
  control.Open();
  control.Hold("midiOutOpen");
  std::thread caller([this] { EXPECT_EQ(Do("open-output 0"), 0); });
  EXPECT_TRUE(control.WaitForHeld("midiOutOpen"));
  control.Release("midiOutOpen");
  caller.join();
}

TEST_F(DeskSelftest, RulesMayConcernOneFirstArgumentOnly) {
  control.AddOutput("One");
  control.AddOutput("Two");
  control.Open();
  control.Fail("midiOutOpen", kAllocated, {.times = 1, .firstArgument = 1});
  EXPECT_EQ(Do("open-output 0"), 0);
  EXPECT_EQ(Do("open-output 1"), kAllocated);
  EXPECT_EQ(Do("open-output 1"), 0);
}

TEST_F(DeskSelftest, SurvivesEverythingAtOnce) {
  const int input = control.AddInput("Keys");
  control.AddOutput("Synth");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  std::thread user([this] { EXPECT_GT(Do("stress 2000"), 20); });
  const int job = control.Inject(input,
                                 {ItemOf({0x90, 1, 1}),
                                  ItemOf({0xF0, 1, 2, 3, 4, 0xF7}),
                                  {InputItem::Kind::kPartial, {0xF0, 1}}},
                                 {.repeat = 100000});
  for (int i = 0; i < 100; ++i) {
    control.RemoveOutput(control.AddOutput("Come and go"));
    control.RemoveInput(control.AddInput("Come and go"));
    for (const Port& port : control.Ports()) {
      if (!port.open) continue;
      try {
        control.Play(port.id, {{0x91, 1, 1}}, {.repeat = 10});
      } catch (const std::runtime_error&) {
        // It has been closed meanwhile.
      }
    }
  }
  user.join();
  EXPECT_TRUE(control.WaitForJob(job).has_value());
  EXPECT_THAT(Heard(), IsEmpty());
  EXPECT_THAT(control.Violations(), IsEmpty());
  const ProcessCounts counts = control.Counts();
  EXPECT_EQ(counts.openInputs + counts.openOutputs + counts.openPorts, 0u);
}

TEST_F(DeskSelftest, CarriesBulkAndCountsTheProcess) {
  constexpr std::size_t kMessages = 200000;
  control.Open();
  control.Mute("virtualMIDISendData");
  ASSERT_EQ(Do("libraries"), 4);
  ASSERT_EQ(Do("create-port Bulk"), 0);
  const int port = control.Ports().front().id;
  ASSERT_EQ(Do("send-port xyz " + std::to_string(kMessages)), static_cast<long long>(kMessages));
  ASSERT_TRUE(control.WaitForPortMessages(port, kMessages));
  const ProcessCounts counts = control.Counts();
  EXPECT_GT(counts.handles, 5u);
  EXPECT_EQ(counts.openPorts, 1u);
  EXPECT_GE(counts.threads, 3u);
  EXPECT_EQ(counts.sockets, 1u);  // the control connection
}

// What the program takes from the heap is told apart from what the desk itself takes.
TEST_F(DeskSelftest, TellsWhoseTheHeapIs) {
  constexpr std::uint64_t kTaken = 1000000;
  constexpr std::uint64_t kOtherwise = 50000;  // of the program's and the desk's own doings
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  const ProcessCounts before = control.Counts();
  EXPECT_GT(before.deskHeapBytes, 0u);
  EXPECT_GT(before.heapBytes, before.deskHeapBytes);
  ASSERT_EQ(Do("take " + std::to_string(kTaken)), 0);
  const ProcessCounts after = control.Counts();
  EXPECT_GE(after.heapBytes, before.heapBytes + kTaken);
  EXPECT_LE(after.heapBytes, before.heapBytes + kTaken + kOtherwise);
  EXPECT_LE(after.deskHeapBytes, before.deskHeapBytes + kOtherwise);
  ASSERT_EQ(Do("take 0"), 0);
  EXPECT_LE(control.Counts().heapBytes, before.heapBytes + kOtherwise);
}

TEST_F(DeskSelftest, TheDeskReadsTheClockOfTheNativeSide) {
  control.Open();
  for (int i = 0; i < 20; ++i) {
    const std::int64_t before = RawNowNs();
    const std::int64_t there = control.Ping();
    const std::int64_t after = RawNowNs();
    EXPECT_GE(there, before - 100);  // its steps are 100 ns
    EXPECT_LE(there, after);
  }
}

TEST_F(DeskSelftest, MissingPartsOfTheMachineAreMissing) {
  DeskOptions options = Options();
  options.asl = false;
  options.virtualMidi = false;
  options.open = true;
  Desk poor(options);
  EXPECT_EQ(poor.GetHost().Ask("libraries").at("value"), 2);
  options.deviceLibraryText = "Z:\\nowhere\\iTunesMobileDevice.dll";
  options.installDir = false;
  Desk poorer(options);
  EXPECT_EQ(poorer.GetHost().Ask("libraries").at("value"), 0);
}

}  // namespace
}  // namespace corvalint::harness
