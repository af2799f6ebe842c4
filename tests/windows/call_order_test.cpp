// Which functions of winmm and of the port driver the shipped DLL calls, in which order and with
// what.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

using device::Bytes;
using harness::CallEntry;
using harness::InputItem;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr std::uint64_t kCallbackFunction = 0x30000;

const std::vector<std::string> kInputCalls{
    "midiInOpen", "midiInPrepareHeader", "midiInAddBuffer",       "midiInStart",
    "midiInStop", "midiInReset",         "midiInUnprepareHeader", "midiInClose"};
const std::vector<std::string> kOutputCalls{
    "midiOutOpen",     "midiOutPrepareHeader",   "midiOutLongMsg",
    "midiOutShortMsg", "midiOutUnprepareHeader", "midiOutReset",
    "midiOutClose"};
const std::vector<std::string> kPortCalls{"virtualMIDICreatePortEx2", "virtualMIDISendData",
                                          "virtualMIDIClosePort", "virtualMIDIShutdown"};

const std::vector<std::string> kOpening{
    "midiInOpen",      "midiInPrepareHeader", "midiInAddBuffer", "midiInPrepareHeader",
    "midiInAddBuffer", "midiInPrepareHeader", "midiInAddBuffer", "midiInPrepareHeader",
    "midiInAddBuffer", "midiInStart"};
const std::vector<std::string> kClosing{"midiInStop",
                                        "midiInReset",
                                        "midiInUnprepareHeader",
                                        "midiInUnprepareHeader",
                                        "midiInUnprepareHeader",
                                        "midiInUnprepareHeader",
                                        "midiInClose"};

std::vector<std::int64_t> ResultsOf(const std::vector<CallEntry>& calls) {
  std::vector<std::int64_t> results;
  for (const CallEntry& call : calls) results.push_back(call.result.value_or(-1));
  return results;
}

std::vector<std::string> Beginning(const std::vector<std::string>& names, std::size_t count,
                                   const std::vector<std::string>& rest) {
  std::vector<std::string> all(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count));
  all.insert(all.end(), rest.begin(), rest.end());
  return all;
}

// One desk for all tests; each of them leaves the endpoints off and the device without endpoints.
class CallOrder : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    bridge = std::make_unique<Bridge>(std::vector<std::string>{"Other", "Keys"},
                                      std::vector<std::string>{"Synth", "Other", "Synth"});
    plugged = bridge->Plug("device-a");
    keys = bridge->GetHost().Sources().at(1).id;
    synth = bridge->GetHost().Destinations().at(0).id;
  }
  static void TearDownTestSuite() {
    EXPECT_THAT(bridge->Control().Violations(), IsEmpty());
    plugged.reset();
    bridge.reset();
  }

  void SetUp() override {
    ASSERT_TRUE(plugged->Flush());
    plugged->App().Record().Clear();
    control.ClearCalls();
  }

  std::vector<CallEntry> InputCalls() { return CallsTo(control, kInputCalls); }
  std::vector<CallEntry> OutputCalls() { return CallsTo(control, kOutputCalls); }
  std::vector<CallEntry> PortCalls() { return CallsTo(control, kPortCalls); }
  void ToggleKeys() { bridge->GetHost().ToggleSource(keys); }
  void ToggleSynth() { bridge->GetHost().ToggleDestination(synth); }
  void Play(const Bytes& midi) {
    ASSERT_TRUE(plugged->App().SendMidi("Synth", synth, midi));
    ASSERT_TRUE(plugged->Flush());
  }
  bool IsOn(const std::string& side, std::int32_t id) {
    return bridge->GetHost().Ask(side + "-status " + std::to_string(id)).at("value") == 1;
  }
  bool IsAvailable(const std::string& side, std::int32_t id) {
    return bridge->GetHost().Ask(side + "-available " + std::to_string(id)).at("value") == 1;
  }

  // A toggle that fails at the `from`-th call of the function; what it called, and what is left.
  void ExpectFailedOpen(const std::string& function, std::uint64_t from,
                        const std::vector<std::string>& calls) {
    control.Fail(function, harness::kNoMemory, {.from = from, .times = 1});
    control.ClearCalls();
    ToggleKeys();
    control.ClearRules(function);
    EXPECT_THAT(NamesOf(InputCalls()), ElementsAreArray(calls)) << function;
    EXPECT_FALSE(IsOn("source", keys));
    EXPECT_FALSE(IsAvailable("source", keys));
    EXPECT_EQ(control.Counts().openInputs, 0u);
    // The next toggle tries again.
    control.ClearCalls();
    ToggleKeys();
    EXPECT_THAT(NamesOf(InputCalls()), ElementsAreArray(kOpening));
    EXPECT_TRUE(IsOn("source", keys));
    EXPECT_TRUE(IsAvailable("source", keys));
    ToggleKeys();
  }

  static std::unique_ptr<Bridge> bridge;
  static std::unique_ptr<PluggedDevice> plugged;
  static std::int32_t keys;
  static std::int32_t synth;
  harness::DeskControl& control = bridge->Control();
};

std::unique_ptr<Bridge> CallOrder::bridge;
std::unique_ptr<PluggedDevice> CallOrder::plugged;
std::int32_t CallOrder::keys = 0;
std::int32_t CallOrder::synth = 0;

TEST_F(CallOrder, SourceIsOpenedWithFourBuffersAndStarted) {
  ToggleKeys();
  auto calls = InputCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAreArray(kOpening));
  EXPECT_THAT(calls[0].arguments, ElementsAre(1u, kCallbackFunction));
  EXPECT_THAT(ResultsOf(calls), Each(0));
  std::set<std::uint64_t> buffers;
  for (std::size_t i = 1; i < 9; i += 2) {
    EXPECT_EQ(calls[i].arguments, calls[i + 1].arguments);  // prepared and then queued
    buffers.insert(calls[i].arguments.at(1));
  }
  EXPECT_EQ(buffers.size(), 4u);
  const std::vector<CallEntry> opening = calls;

  control.ClearCalls();
  ToggleKeys();
  calls = InputCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAreArray(kClosing));
  EXPECT_THAT(ResultsOf(calls), Each(0));
  for (const CallEntry& call : calls) {
    EXPECT_EQ(call.arguments.at(0), opening[1].arguments.at(0)) << call.function;
  }
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(calls[2 + i].arguments.at(1), opening[1 + 2 * i].arguments.at(1));
  }
}

TEST_F(CallOrder, SourceThatFailsToOpenIsOffAndNotAvailable) {
  ExpectFailedOpen("midiInOpen", 1, {"midiInOpen"});
  ExpectFailedOpen("midiInPrepareHeader", 1, {"midiInOpen", "midiInPrepareHeader", "midiInClose"});
}

// winmm closes no input that has buffers queued, so it is reset first; without that it stayed open.
TEST_F(CallOrder, SourceThatFailsLaterIsResetAndClosed) {
  const std::vector<std::string> reset{"midiInClose",
                                       "midiInReset",
                                       "midiInUnprepareHeader",
                                       "midiInUnprepareHeader",
                                       "midiInUnprepareHeader",
                                       "midiInUnprepareHeader",
                                       "midiInClose"};
  ExpectFailedOpen("midiInPrepareHeader", 3, Beginning(kOpening, 6, reset));
  ExpectFailedOpen("midiInAddBuffer", 4, Beginning(kOpening, 9, reset));
  ExpectFailedOpen("midiInStart", 1, Beginning(kOpening, 10, reset));
}

TEST_F(CallOrder, BuffersAreQueuedAgainOnceTheyAreHandedOn) {
  ToggleKeys();
  const std::uint64_t first = InputCalls().at(1).arguments.at(1);
  control.ClearCalls();
  bridge->Inject("Keys", {{0x90, 1, 2}, {0xF0, 1, 2, 0xF7}});
  ASSERT_TRUE(plugged->WaitForMidi(2));
  const auto calls = InputCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAre("midiInAddBuffer"));
  EXPECT_EQ(calls[0].arguments.at(1), first);
  ToggleKeys();  // the reset returns all four empty, and none of them is queued again
  EXPECT_THAT(NamesOf(InputCalls()), ElementsAreArray(Beginning({"midiInAddBuffer"}, 1, kClosing)));
}

TEST_F(CallOrder, MoreLongMessagesThanBuffersAreAllTaken) {
  ToggleKeys();
  std::vector<Bytes> messages;
  for (std::uint8_t i = 0; i < 40; ++i) messages.push_back({0xF0, i, 0xF7});
  bridge->Inject("Keys", messages);
  ASSERT_TRUE(plugged->WaitForMidi(messages.size()));
  std::vector<Bytes> received;
  for (const auto& midi : plugged->Midi()) received.push_back(midi.data);
  EXPECT_EQ(received, messages);
  ToggleKeys();
}

TEST_F(CallOrder, DestinationSendsEveryBlockAsALongMessage) {
  ToggleSynth();
  auto calls = OutputCalls();
  // Of two devices with one name the later one is used.
  ASSERT_THAT(NamesOf(calls), ElementsAre("midiOutOpen"));
  EXPECT_THAT(calls[0].arguments, ElementsAre(2u, 0u));
  for (const Bytes& midi : {Bytes{0x90, 1, 2}, Bytes{0xF8}, Bytes{0xF0, 1, 2, 3, 4, 0xF7}}) {
    control.ClearCalls();
    control.ForgetRecorded();
    Play(midi);
    calls = OutputCalls();
    ASSERT_THAT(NamesOf(calls),
                ElementsAre("midiOutPrepareHeader", "midiOutLongMsg", "midiOutUnprepareHeader"));
    EXPECT_EQ(calls[0].arguments, calls[1].arguments);
    EXPECT_EQ(calls[0].arguments, calls[2].arguments);
    EXPECT_THAT(ResultsOf(calls), Each(0));
  }
  control.ClearCalls();
  ToggleSynth();
  EXPECT_THAT(NamesOf(OutputCalls()), ElementsAre("midiOutClose"));
}

TEST_F(CallOrder, BlockThatStillPlaysIsAskedForAgain) {
  ToggleSynth();
  control.ClearCalls();
  control.Fail("midiOutUnprepareHeader", harness::kStillPlaying, {.times = 5});
  Play({0xF0, 1, 0xF7});
  control.ClearRules("midiOutUnprepareHeader");
  const auto calls = OutputCalls();
  ASSERT_EQ(calls.size(), 8u);
  EXPECT_THAT(ResultsOf(calls), ElementsAre(0, 0, 65, 65, 65, 65, 65, 0));
  for (std::size_t i = 3; i < calls.size(); ++i) {
    EXPECT_EQ(calls[i].function, "midiOutUnprepareHeader");
    EXPECT_EQ(calls[i].arguments, calls[0].arguments);
    EXPECT_GE(calls[i].ns - calls[i - 1].ns, 500000);  // a pause of a millisecond between two
  }
  ToggleSynth();
}

// Any other answer than "still playing" ends the wait.
TEST_F(CallOrder, DestinationsThatFail) {
  control.Fail("midiOutOpen", harness::kAllocated, {.times = 1});
  ToggleSynth();
  control.ClearRules("midiOutOpen");
  EXPECT_FALSE(IsOn("destination", synth));
  EXPECT_FALSE(IsAvailable("destination", synth));
  EXPECT_THAT(NamesOf(OutputCalls()), ElementsAre("midiOutOpen"));
  ToggleSynth();
  EXPECT_TRUE(IsOn("destination", synth));
  EXPECT_TRUE(IsAvailable("destination", synth));

  const std::vector<std::string> steps{"midiOutPrepareHeader", "midiOutLongMsg",
                                       "midiOutUnprepareHeader"};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    control.Fail(steps[i], harness::kNoDriver, {.times = 1});
    control.ClearCalls();
    Play({0x90, 1, 2});
    control.ClearRules(steps[i]);
    EXPECT_THAT(NamesOf(OutputCalls()), ElementsAreArray(Beginning(steps, i + 1, {})));
  }
  ToggleSynth();
}

TEST_F(CallOrder, ClosedDestinationIsStillAddressed) {
  Play({0x90, 1, 2});
  const auto calls = OutputCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAre("midiOutPrepareHeader"));
  EXPECT_EQ(calls[0].arguments.at(0), 0u);
  EXPECT_THAT(ResultsOf(calls), ElementsAre(harness::kInvalidHandle));
}

// A driver that still holds buffers refuses the close; it is reset and asked again.
TEST_F(CallOrder, SourceThatDoesNotCloseIsResetAgain) {
  ToggleKeys();
  control.Fail("midiInClose", harness::kStillPlaying, {.times = 2});
  control.ClearCalls();
  ToggleKeys();
  control.ClearRules("midiInClose");
  const std::vector<std::string> again(kClosing.begin() + 1, kClosing.end());
  EXPECT_THAT(NamesOf(InputCalls()),
              ElementsAreArray(Beginning(Beginning(kClosing, 7, again), 13, again)));
  EXPECT_EQ(control.Counts().openInputs, 0u);
}

// The device's thread is inside a send that the driver does not finish; a reset frees it.
TEST_F(CallOrder, DestinationThatIsStuckCanBeClosed) {
  ToggleSynth();
  const int output = bridge->Output("Synth");
  control.SetStuck(output, true);
  control.ClearCalls();
  ASSERT_TRUE(plugged->App().SendMidi("Synth", synth, {0xF0, 1, 0xF7}));
  ASSERT_TRUE(control.WaitForCall("midiOutUnprepareHeader", 3));
  ToggleSynth();
  control.SetStuck(output, false);
  ASSERT_TRUE(plugged->Flush());
  std::vector<std::string> names = NamesOf(OutputCalls());
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.back(), "midiOutClose");
  EXPECT_THAT(names, testing::Contains("midiOutReset"));
  EXPECT_EQ(control.CallCounts()["midiOutLongMsg"], 1u);
  EXPECT_EQ(control.Counts().openOutputs, 0u);
}

// One is unplugged, the other does not tell what it is any more.
TEST(CallOrderOfScans, VanishedDevicesAreClosed) {
  Bridge desk({"Keys"}, {"Synth", "Organ"});
  harness::DeskControl& control = desk.Control();
  desk.SwitchSourceOn("Keys");
  desk.SwitchDestinationOn("Synth");
  control.ClearCalls();
  control.RemoveInput(desk.Input("Keys"));
  control.Fail("midiOutGetDevCapsA", harness::kBadDeviceId, {.firstArgument = 0});
  ASSERT_TRUE(control.WaitForInputClosed(desk.Input("Keys")));
  EXPECT_THAT(NamesOf(CallsTo(control, kInputCalls)), ElementsAreArray(kClosing));
  EXPECT_THAT(NamesOf(CallsTo(control, kOutputCalls)), ElementsAre("midiOutClose"));
  EXPECT_TRUE(desk.GetHost().Sources().empty());
  const auto destinations = desk.GetHost().Destinations();
  ASSERT_EQ(destinations.size(), 1u);
  EXPECT_EQ(destinations[0].name, "Organ");
  EXPECT_THAT(control.Violations(), IsEmpty());
}

TEST_F(CallOrder, PortIsCreatedUsedAndClosed) {
  device::SimulatedDevice& app = plugged->App();
  ASSERT_TRUE(app.AnnounceSource("Pad", 77) && app.AnnounceDestination("Pad", 78));
  ASSERT_TRUE(app.SendMidi("ignored", 77, {0x90, 1, 2}) && app.SendMidi("Pad", 78, {0x90, 3, 4}));
  ASSERT_TRUE(app.WithdrawSource("Pad", 77) && plugged->Flush());
  auto calls = PortCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAre("virtualMIDICreatePortEx2", "virtualMIDISendData"));
  EXPECT_EQ(calls[0].text, harness::HexOfUtf16(u"Pad"));
  ASSERT_EQ(calls[0].arguments.size(), 4u);
  EXPECT_NE(calls[0].arguments[0], 0u);      // the callback
  EXPECT_EQ(calls[0].arguments[2], 65535u);  // the longest system exclusive message
  EXPECT_EQ(calls[0].arguments[3], 1u);      // the driver parses what applications write
  const auto handle = static_cast<std::uint64_t>(calls[0].result.value_or(0));
  EXPECT_THAT(calls[1].arguments, ElementsAre(handle, 3u));
  // The destination has kept the port; with it the port goes.
  ASSERT_TRUE(app.WithdrawDestination("Pad", 78) && plugged->Flush());
  calls = PortCalls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[2].function, "virtualMIDIClosePort");
  EXPECT_THAT(calls[2].arguments, ElementsAre(handle));
}

TEST_F(CallOrder, PortNamesAreCutTo31BytesAndWidenedByteByByte) {
  const std::string exact(31, 'n');
  const std::string longer = std::string(29, 'm') + "XYZ";
  const std::string bytes = "\xC3\xA4\x80\xFF|";
  const std::vector<std::pair<std::string, std::string>> names{
      {exact, exact}, {longer, std::string(29, 'm') + ".."}, {bytes, bytes}};
  std::int32_t id = 100;
  for (const auto& [announced, published] : names) {
    control.ClearCalls();
    ASSERT_TRUE(plugged->App().AnnounceSource(announced, id));
    ASSERT_TRUE(plugged->App().WithdrawSource(announced, id));
    ASSERT_TRUE(plugged->Flush());
    const auto calls = PortCalls();
    ASSERT_THAT(NamesOf(calls), ElementsAre("virtualMIDICreatePortEx2", "virtualMIDIClosePort"));
    EXPECT_EQ(calls[0].text, harness::HexOfUtf16(harness::Widened(published)));
    ++id;
  }
}

TEST_F(CallOrder, TwoSourcesOfOneNameAskForTwoPorts) {
  device::SimulatedDevice& app = plugged->App();
  ASSERT_TRUE(app.AnnounceSource("Twin", 1) && app.AnnounceSource("Twin", 2));
  ASSERT_TRUE(app.SendMidi("Twin", 2, {0xFA}) && plugged->Flush());
  auto calls = PortCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAre("virtualMIDICreatePortEx2", "virtualMIDICreatePortEx2",
                                          "virtualMIDISendData"));
  EXPECT_NE(calls[0].result.value_or(0), 0);
  // The driver makes one port of a name. The second lives on without it, in silence.
  EXPECT_EQ(calls[1].result.value_or(1), 0);
  EXPECT_THAT(calls[2].arguments, ElementsAre(0u, 1u));
  control.ClearCalls();
  ASSERT_TRUE(app.WithdrawSource("Twin", 2) && app.WithdrawSource("Twin", 1) && plugged->Flush());
  calls = PortCalls();
  ASSERT_THAT(NamesOf(calls), ElementsAre("virtualMIDIClosePort"));
}

TEST_F(CallOrder, ProcessAsksForFineTimersOnce) {
  Bridge fresh;
  const auto calls = CallsTo(fresh.Control(), {"timeBeginPeriod", "timeEndPeriod"});
  ASSERT_THAT(NamesOf(calls), ElementsAre("timeBeginPeriod"));
  EXPECT_THAT(calls[0].arguments, ElementsAre(1u));
}

}  // namespace
}  // namespace corvalint::windows_test
