#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "corvalint_wrapper.h"
#include "service/log.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_process.h"
#include "support/fake_winmm.h"
#include "support/osc_bytes.h"
#include "support/recording_client.h"
#include "support/test_server.h"
#include "winmidi/midi_endpoint_registry.h"
#include "winmidi/midi_link_controller.h"
#include "winmidi/midi_scan.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::ConsoleCapture;
using test::EndpointMessage;
using test::FakeClock;
using test::FakeProcess;
using test::FakeWinmm;
using test::RecordingClient;
using test::TestServer;
using Packets = std::vector<std::string>;
using Calls = FakeWinmm::Calls;

// Sources and destinations answer alike, each from its own list. A test of both runs with each.
struct Exports {
  const char* kind;
  corvalint_int64 (*count)();
  int (*idAt)(int);
  unsigned int (*nameLength)(int);
  char (*nameByte)(int, int);
  void (*toggle)(unsigned int);
  corvalint_bool (*status)(int);
  corvalint_bool (*available)(int);
};

constexpr Exports kSources = {"source",
                              corvalintServerGetCountOfSources,
                              get_unique_id_source,
                              get_source_name_length,
                              corvalintServerGetActiveMIDISourceName,
                              set_source_status,
                              get_source_status,
                              get_source_available};
constexpr Exports kDestinations = {"destination",
                                   corvalintServerGetCountOfDestinations,
                                   get_unique_id_destination,
                                   get_dest_name_length,
                                   corvalintServerGetActiveMIDIDestName,
                                   set_destination_status,
                                   get_destination_status,
                                   get_destination_available};

static_assert(sizeof(corvalint_bool) == 1 && sizeof(corvalint_int64) == 8);

class EndpointExportsTest : public testing::Test {
 protected:
  ~EndpointExportsTest() override { Clear(); }

  static MidiEndpoint& AddSource(const std::string& name, std::int32_t id) {
    const auto source = std::make_shared<MidiSourceEndpoint>(GetMidiEndpointRegistry());
    Fill(*source, name, id);
    CriticalSectionScope hold(GetMidiEndpointRegistry().listLock);
    GetMidiEndpointRegistry().sources.push_back(source);
    return *source;
  }
  static MidiEndpoint& AddDestination(const std::string& name, std::int32_t id) {
    const auto destination = std::make_shared<MidiDestinationEndpoint>();
    Fill(*destination, name, id);
    CriticalSectionScope hold(GetMidiEndpointRegistry().listLock);
    GetMidiEndpointRegistry().destinations.push_back(destination);
    return *destination;
  }

  ConsoleCapture console;
  FakeClock clock;

 private:
  static void Fill(MidiEndpoint& endpoint, const std::string& name, std::int32_t id) {
    endpoint.name = name;
    endpoint.uniqueId = id;
  }
  static void Clear() {
    MidiEndpointRegistry& registry = GetMidiEndpointRegistry();
    registry.delegate = nullptr;
    CriticalSectionScope hold(registry.listLock);
    registry.sources.clear();
    registry.destinations.clear();
  }
};

class EitherList : public EndpointExportsTest, public testing::WithParamInterface<Exports> {
 protected:
  bool IsSources() const { return GetParam().count == kSources.count; }
  MidiEndpoint& Add(const std::string& name, std::int32_t id) {
    return IsSources() ? AddSource(name, id) : AddDestination(name, id);
  }
  MidiEndpoint& AddToTheOtherList(const std::string& name, std::int32_t id) {
    return IsSources() ? AddDestination(name, id) : AddSource(name, id);
  }
  std::string NameOf(int id) const {
    std::string name;
    const auto length = static_cast<int>(GetParam().nameLength(id));
    for (int i = 0; i < length; ++i) name += GetParam().nameByte(id, i);
    return name;
  }

  template <class Call>
  static void ExpectOutOfRange(const std::string& text, Call call) {
    try {
      call();
      ADD_FAILURE() << "nothing was raised";
    } catch (const std::out_of_range& failure) {
      EXPECT_EQ(failure.what(), text);
    }
  }
  void ExpectNoPosition(int position) const {
    SCOPED_TRACE(position);
    ExpectOutOfRange("invalid vector<T> subscript", [&] { GetParam().idAt(position); });
  }
  void ExpectNoByte(int id, int position) const {
    SCOPED_TRACE(position);
    ExpectOutOfRange("invalid string position", [&] { GetParam().nameByte(id, position); });
  }
};

INSTANTIATE_TEST_SUITE_P(Exports, EitherList, testing::Values(kSources, kDestinations),
                         [](const auto& test) { return std::string(test.param.kind); });

// --- the lists

TEST_P(EitherList, IsEmptyBeforeTheFirstScan) {
  EXPECT_EQ(GetParam().count(), 0);
  ExpectNoPosition(0);
}

TEST_P(EitherList, CountsItsEntries) {
  Add("a", 1);
  Add("b", 2);
  AddToTheOtherList("c", 3);
  EXPECT_EQ(GetParam().count(), 2);
}

TEST_P(EitherList, GivesTheIdsInListOrder) {
  Add("a", 30);
  Add("b", -10);
  Add("c", 0);
  AddToTheOtherList("d", 99);
  EXPECT_EQ(GetParam().idAt(0), 30);
  EXPECT_EQ(GetParam().idAt(1), -10);
  EXPECT_EQ(GetParam().idAt(2), 0);
}

TEST_P(EitherList, RaisesForAPositionOutsideIt) {
  Add("a", 1);
  Add("b", 2);
  for (const int position : {-1, 2, 3, INT_MIN, INT_MAX}) ExpectNoPosition(position);
}

// --- names

TEST_P(EitherList, ReadsANameByteByByte) {
  Add("Org", 7);
  EXPECT_EQ(GetParam().nameLength(7), 3u);
  EXPECT_EQ(GetParam().nameByte(7, 0), 'O');
  EXPECT_EQ(GetParam().nameByte(7, 1), 'r');
  EXPECT_EQ(GetParam().nameByte(7, 2), 'g');
  for (const int position : {3, 4, -1, INT_MIN, INT_MAX}) ExpectNoByte(7, position);
}

TEST_P(EitherList, ReadsNamesBeyondAscii) {
  const std::string name = "Fl\xF6te \x80\xFF\x01";
  Add(name, 7);
  EXPECT_EQ(NameOf(7), name);
}

TEST_P(EitherList, ReadsANameOfAllThirtyOneBytes) {
  const std::string name = "1234567890123456789012345678901";
  Add(name, 7);
  EXPECT_EQ(GetParam().nameLength(7), 31u);
  EXPECT_EQ(NameOf(7), name);
}

TEST_P(EitherList, AnEmptyNameHasNoByte) {
  Add("", 7);
  EXPECT_EQ(GetParam().nameLength(7), 0u);
  ExpectNoByte(7, 0);
}

// --- ids

TEST_P(EitherList, AnswersZeroToAnUnknownIdAndPrintsNothing) {
  Add("Keys", 7).off = false;
  AddToTheOtherList("Other", 8).off = false;
  for (const int id : {8, 0, -7, INT_MIN, INT_MAX}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(GetParam().nameLength(id), 0u);
    for (const int position : {0, 3, -1, INT_MAX}) EXPECT_EQ(GetParam().nameByte(id, position), 0);
    EXPECT_EQ(GetParam().status(id), 0);
    EXPECT_EQ(GetParam().available(id), 0);
  }
  EXPECT_EQ(console.Text(), "");
}

TEST_P(EitherList, FindsEveryIdThatThereCanBe) {
  int number = 0;
  for (const int id : {0, -1, INT_MIN, INT_MAX}) {
    const std::string name = "n" + std::to_string(number++);
    Add(name, id);
    EXPECT_EQ(NameOf(id), name);
  }
}

TEST_P(EitherList, FindsTheFirstOfTwoEndpointsWithOneId) {
  Add("x", 1);
  Add("first", 7).off = false;
  Add("second", 7).available = false;
  EXPECT_EQ(NameOf(7), "first");
  EXPECT_EQ(GetParam().status(7), 1);
  EXPECT_EQ(GetParam().available(7), 1);
}

TEST_P(EitherList, KeepsTheTwoListsApart) {
  Add("mine", 7).off = false;
  AddToTheOtherList("theirs", 7).available = false;
  EXPECT_EQ(NameOf(7), "mine");
  EXPECT_EQ(GetParam().status(7), 1);
  EXPECT_EQ(GetParam().available(7), 1);
}

// --- on, off and available

TEST_P(EitherList, TellsTheStatusAndPrintsItWithoutALineEnd) {
  MidiEndpoint& endpoint = Add("Keys", 7);
  endpoint.off = false;
  EXPECT_EQ(GetParam().status(7), 1);
  EXPECT_EQ(console.Take(), "true");
  endpoint.off = true;
  EXPECT_EQ(GetParam().status(7), 0);
  EXPECT_EQ(GetParam().status(7), 0);
  EXPECT_EQ(console.Take(), "falsefalse");
}

TEST_P(EitherList, TellsWhetherItIsAvailableAndPrintsNothing) {
  MidiEndpoint& endpoint = Add("Keys", 7);
  EXPECT_EQ(GetParam().available(7), 1);
  endpoint.available = false;
  EXPECT_EQ(GetParam().available(7), 0);
  EXPECT_EQ(console.Text(), "");
}

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
