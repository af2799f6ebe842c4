// The stand-ins and the harness against a small program that uses them as the product does: MIDI
// devices and ports.
#include "harness/desk_selftest.h"

#include <thread>

namespace corvalint::harness {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
}  // namespace corvalint::harness
