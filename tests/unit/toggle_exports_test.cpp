#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "corvalint_wrapper.h"
#include "service/log.h"
#include "support/call_log.h"
#include "support/endpoint_exports.h"
#include "support/fake_process.h"
#include "support/fake_winmm.h"
#include "support/osc_bytes.h"
#include "support/recording_client.h"
#include "support/test_server.h"
#include "winmidi/midi_link_controller.h"
#include "winmidi/midi_scan.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::EitherList;
using test::EndpointMessage;
using test::FakeProcess;
using test::FakeWinmm;
using test::kDestinations;
using test::kSources;
using test::RecordingClient;
using test::TestServer;
using Packets = std::vector<std::string>;
using Calls = FakeWinmm::Calls;

// --- toggles, down to winmm and out to a device

class ToggleExports : public EitherList {
 protected:
  ToggleExports() {
    LogResetForTest();
    LogInit("log");
    winmm.SetInputs({"Keys"});
    winmm.SetOutputs({"Synth"});
    server.clients.Append(device);
    clock.StepPerRead(10);
    ScanMidiDevices(GetMidiEndpointRegistry());
    id = GetParam().idAt(0);
    name = NameOf(id);
    GetMidiEndpointRegistry().delegate = &controller;
    winmm.TakeCalls();
    console.Take();
  }
  ~ToggleExports() override {
    LogResetForTest();
    winmm.TakeCalls();
  }

  void Toggle() { GetParam().toggle(static_cast<unsigned int>(id)); }
  std::string Sending(const std::string& address) const {
    return "sending " + address + ": " + name + " || " + std::to_string(id) + " \n";
  }
  std::string Address(const std::string& what) const {
    return "/" + what + "_remote_" + GetParam().kind;
  }
  std::string Opening() const { return IsSources() ? "midiInOpen" : "midiOutOpen"; }
  void ExpectState(bool on, bool available) {
    EXPECT_EQ(GetParam().status(id), on ? 1 : 0);
    EXPECT_EQ(GetParam().available(id), available ? 1 : 0);
    console.Take();
  }
  // The text of the log without time and thread.
  std::string LogText() const {
    const std::string text = process.Folder().Read("log");
    return text.substr(std::min(text.size(), text.find("] ") + 2));
  }

  CallLog calls;
  FakeProcess process{calls};
  FakeWinmm winmm;
  TestServer server;
  RecordingClient device;
  MidiLinkController controller{GetMidiEndpointRegistry()};
  int id = 0;
  std::string name;
};

INSTANTIATE_TEST_SUITE_P(Exports, ToggleExports, testing::Values(kSources, kDestinations),
                         [](const auto& test) { return std::string(test.param.kind); });

TEST_P(ToggleExports, BeginOffAndAvailable) { ExpectState(false, true); }

TEST_P(ToggleExports, OnceOpensTheDeviceAndAnnouncesIt) {
  Toggle();
  if (IsSources()) {
    EXPECT_EQ(winmm.TakeCalls(),
              (Calls{"midiInGetNumDevs()", "midiInOpen(0)", "midiInPrepareHeader(Keys, 0)",
                     "midiInAddBuffer(Keys, 0)", "midiInPrepareHeader(Keys, 1)",
                     "midiInAddBuffer(Keys, 1)", "midiInPrepareHeader(Keys, 2)",
                     "midiInAddBuffer(Keys, 2)", "midiInPrepareHeader(Keys, 3)",
                     "midiInAddBuffer(Keys, 3)", "midiInStart(Keys)"}));
    EXPECT_EQ(console.Take(), "source added Keys\n" + Sending("/add_remote_source"));
  } else {
    EXPECT_EQ(winmm.TakeCalls(), (Calls{"midiOutGetNumDevs()", "midiOutOpen(0)"}));
    EXPECT_EQ(console.Take(), Sending("/add_remote_destination") + "destination added Synth\n");
  }
  EXPECT_EQ(device.TakePackets(), Packets{EndpointMessage(Address("add"), name, id)});
  ExpectState(true, true);
  Toggle();
}

TEST_P(ToggleExports, TwiceBringsItBackAndAnnouncesAnAddAndThenARemove) {
  Toggle();
  winmm.TakeCalls();
  console.Take();
  Toggle();
  if (IsSources()) {
    EXPECT_EQ(winmm.TakeCalls(),
              (Calls{"midiInStop(Keys)", "midiInReset(Keys)", "midiInUnprepareHeader(Keys, 0)",
                     "midiInUnprepareHeader(Keys, 1)", "midiInUnprepareHeader(Keys, 2)",
                     "midiInUnprepareHeader(Keys, 3)", "midiInClose(Keys)"}));
  } else {
    EXPECT_EQ(winmm.TakeCalls(), Calls{"midiOutClose(Synth)"});
  }
  EXPECT_EQ(console.Take(), Sending(Address("remove")));
  EXPECT_EQ(device.TakePackets(), (Packets{EndpointMessage(Address("add"), name, id),
                                           EndpointMessage(Address("remove"), name, id)}));
  ExpectState(false, true);
}

TEST_P(ToggleExports, AFailedOpenLeavesItOffAndUnavailableAndTheNextOneTriesAgain) {
  winmm.Fail(Opening(), 4);
  Toggle();
  EXPECT_EQ(console.Take(), "");
  EXPECT_EQ(device.TakePackets(), Packets{});
  ExpectState(false, false);
  Toggle();
  EXPECT_EQ(winmm.Count(Opening()), 2);
  EXPECT_EQ(device.TakePackets(), Packets{EndpointMessage(Address("add"), name, id)});
  ExpectState(true, true);
  Toggle();
}

TEST_P(ToggleExports, AnUnknownIdDoesNothing) {
  GetParam().toggle(static_cast<unsigned int>(id) + 1);
  EXPECT_EQ(winmm.TakeCalls(), Calls{});
  EXPECT_EQ(console.Take(), "");
  EXPECT_EQ(device.TakePackets(), Packets{});
  ExpectState(false, true);
}

TEST_P(ToggleExports, TakeTheBitsOfANegativeId) {
  MidiEndpoint& endpoint = IsSources() ? AddSource("Keys", -5) : AddDestination("Synth", -5);
  GetParam().toggle(4294967291u);
  EXPECT_FALSE(endpoint.off);
  EXPECT_EQ(GetParam().status(-5), 1);
  EXPECT_EQ(device.TakePackets(), Packets{EndpointMessage(Address("add"), name, -5)});
  GetParam().toggle(4294967291u);
  EXPECT_TRUE(endpoint.off);
}

TEST_P(ToggleExports, KeepAFailureInsideToThemselves) {
  device.whenSent = [] { throw std::runtime_error("out of buffer memory"); };
  EXPECT_NO_THROW(Toggle());
  EXPECT_EQ(LogText(), "ERROR endpoint not switched: out of buffer memory\n");
  device.whenSent = {};
  // No lock was left behind.
  EXPECT_EQ(GetMidiEndpointRegistry().deviceLock.HoldsOfThisThread(), 0u);
  EXPECT_EQ(server.clientLock.HoldsOfThisThread(), 0u);
  Toggle();
  ExpectState(false, true);
}

TEST_P(ToggleExports, DoNotHoldTheLockOfThePublishedPortsWhileADeviceOpensOrCloses) {
  std::vector<std::uint32_t> holds;
  const auto note = [&] { holds.push_back(server.Lock().HoldsOfThisThread()); };
  winmm.WhenCalled(Opening(), note);
  winmm.WhenCalled(IsSources() ? "midiInClose" : "midiOutClose", note);
  Toggle();
  Toggle();
  EXPECT_EQ(holds, (std::vector<std::uint32_t>{0, 0}));
}

TEST_P(ToggleExports, LetOtherThreadsAskWhileADeviceOpens) {
  corvalint_int64 count = 0;
  std::string nameThere;
  winmm.WhenCalled(Opening(), [&] {
    // Joined inside the call: a question that waited for the toggle would never end.
    std::thread([&] {
      count = GetParam().count();
      nameThere = NameOf(GetParam().idAt(0));
    }).join();
  });
  Toggle();
  EXPECT_EQ(count, 1);
  EXPECT_EQ(nameThere, name);
  Toggle();
}

TEST_P(ToggleExports, AnswerWhileAScanOfASlowDriverIsUnderWay) {
  corvalint_int64 count = 0;
  winmm.WhenCalled(IsSources() ? "midiInGetNumDevs" : "midiOutGetNumDevs", [&] {
    std::thread([&] {
      count = GetParam().count();
      GetParam().status(id);
    }).join();
  });
  ScanMidiDevices(GetMidiEndpointRegistry());
  EXPECT_EQ(count, 1);
}

TEST_P(ToggleExports, AnswerWhileDevicesComeAndGo) {
  constexpr int kScans = 200;
  std::atomic<bool> scanning{true};
  std::thread scanner([&] {
    for (int i = 0; i < kScans; ++i) {
      const std::vector<std::string> there =
          i % 2 == 0 ? std::vector<std::string>{} : std::vector<std::string>{"Keys", "Synth"};
      winmm.SetInputs(there);
      winmm.SetOutputs(there);
      ScanMidiDevices(GetMidiEndpointRegistry());
    }
    scanning = false;
  });
  while (scanning) {
    try {
      const int first = GetParam().idAt(0);
      // From the moment on at which the device goes, its id is unknown and each byte is 0.
      std::string found = NameOf(first);
      found.erase(found.find_last_not_of('\0') + 1);
      EXPECT_TRUE(std::string("Keys").rfind(found, 0) == 0 ||
                  std::string("Synth").rfind(found, 0) == 0)
          << found;
      GetParam().status(first);
      GetParam().available(first);
    } catch (const std::out_of_range& failure) {
      EXPECT_STREQ(failure.what(), "invalid vector<T> subscript");
    }
  }
  scanner.join();
  EXPECT_EQ(GetParam().count(), 2);
}

}  // namespace
}  // namespace corvalint
