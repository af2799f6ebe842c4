#include "startup/service_thread.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "service/log.h"
#include "startup/service_start.h"
#include "support/call_log.h"
#include "support/clear_desktop.h"
#include "support/console_capture.h"
#include "support/deferred_threads.h"
#include "support/fake_clock.h"
#include "support/fake_library.h"
#include "support/fake_process.h"
#include "support/fake_registry.h"
#include "support/fake_winmm.h"
#include "usb/usb_server_thread.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::ConsoleCapture;
using test::DeferredThreads;
using test::FakeClock;
using test::FakeLibrary;
using test::FakeProcess;
using test::FakeRegistry;
using test::FakeWinmm;
using Calls = CallLog::Calls;
using Sleeps = std::vector<std::uint32_t>;

// The service on the test's own thread. Its server's thread is noted and does not run, so each
// scan that reaches winmm is the service's own.
class Service : public testing::Test {
 protected:
  Service() {
    LogResetForTest();
    LogInit("log");
    calls.Take();
    ServiceRunning = false;
  }
  ~Service() override {
    LogResetForTest();
    theUsbServer = nullptr;
    test::ClearDesktop();
  }

  // Runs the service until it has slept `rounds` times and has scanned after each; `inSleep` runs
  // inside each sleep, with its number from 1.
  void RunFor(int rounds, std::function<void(int)> inSleep = {}) {
    int round = 0;
    clock.WhenSleeping([&](std::uint32_t) {
      ++round;
      if (inSleep) inSleep(round);
      if (round == rounds) ServiceRunning = false;
    });
    RunService();
  }

  // What the server's own thread does first.
  static void LetTheServerHaveItsLock() {
    static auto* const lock = new CriticalSection;
    theUsbServer.load()->midiLock = lock;
  }

  std::vector<std::string> LogLines() const {
    std::vector<std::string> lines;
    const std::string text = process.Folder().Read("log");
    for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
      lines.push_back(text.substr(at, end - at).substr(text.find("] ") + 2));
    }
    return lines;
  }

  ConsoleCapture console;
  CallLog calls;
  FakeClock clock;
  FakeProcess process{calls};
  FakeWinmm winmm;
  DeferredThreads threads{calls};
};

TEST_F(Service, ReadsTheConfigurationThenStartsTheServerBeforeItSleepsForTheFirstTime) {
  RunFor(1, [&](int) {
    EXPECT_TRUE(ServiceRunning);
    EXPECT_EQ(calls.Take(),
              (Calls{"executablePath()", "openFile(C:\\host\\pellora.conf, r)", "create() = 1"}));
    auto* const server = dynamic_cast<UsbServerThread*>(theUsbServer.load());
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(server->Running());
    EXPECT_EQ(threads.ParameterOf(1), static_cast<CThread*>(server));
    EXPECT_EQ(threads.ProcedureOf(1), &ThreadProc);
  });
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{5000});
}

TEST_F(Service, AConfigurationWithAnEmptyValueCostsOneLineAndNothingElse) {
  process.Folder().Write(FakeProcess::NameOf("C:\\host\\pellora.conf"), "a=1\nb=\nc=3\n");
  RunFor(2);
  EXPECT_EQ(LogLines(),
            std::vector<std::string>{
                "ERROR C:\\host\\pellora.conf not read to its end: invalid string position"});
  EXPECT_EQ(threads.Made(), 1);
  EXPECT_NE(theUsbServer.load(), nullptr);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(console.Take(), "");
}

TEST_F(Service, AConfigurationOfAnyOtherKindChangesNothing) {
  for (const char* bytes : {"", "a=1\n", "=\n;x=\n", "anything"}) {
    process.Folder().Write(FakeProcess::NameOf("C:\\host\\pellora.conf"), bytes);
    RunFor(1);
  }
  EXPECT_EQ(LogLines(), std::vector<std::string>{});
  EXPECT_EQ(threads.Made(), 4);
}

TEST_F(Service, GoesOnWhenTheServersThreadCannotBeMade) {
  threads.Refuse();
  RunFor(2);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_NE(theUsbServer.load(), nullptr);
}

TEST_F(Service, ScansAfterEachFiveSecondsAndNeverBefore) {
  clock.StepPerRead(10);
  std::vector<int> scansBefore;
  threads.WhenMaking(LetTheServerHaveItsLock);  // a scan is possible from the start
  RunFor(3, [&](int) { scansBefore.push_back(winmm.Count("midiInGetNumDevs")); });
  EXPECT_EQ(scansBefore, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(winmm.Count("midiInGetNumDevs"), 3);
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000, 5000}));
  winmm.TakeCalls();
}

TEST_F(Service, ScansIntoTheOneRegistry) {
  clock.StepPerRead(10);
  winmm.SetInputs({"Keys"});
  winmm.SetOutputs({"Synth", "Organ"});
  RunFor(1, [](int) {
    LetTheServerHaveItsLock();
    EXPECT_EQ(GetMidiEndpointRegistry().SourceCount(), 0);
    EXPECT_EQ(GetMidiEndpointRegistry().DestinationCount(), 0);
  });
  EXPECT_EQ(GetMidiEndpointRegistry().SourceCount(), 1);
  EXPECT_EQ(GetMidiEndpointRegistry().DestinationCount(), 2);
  EXPECT_EQ(GetMidiEndpointRegistry().SourceAt(0)->name, "Keys");
  winmm.TakeCalls();
}

TEST_F(Service, LeavesAScanOutWhileTheServerHasNoLockYet) {
  RunFor(2);
  EXPECT_EQ(winmm.TakeCalls(), FakeWinmm::Calls{});
  EXPECT_EQ(LogLines(), std::vector<std::string>{});
}

TEST_F(Service, OutlivesAScanThatFails) {
  int scans = 0;
  winmm.WhenCalled("midiInGetNumDevs", [&] {
    if (++scans == 1) throw std::runtime_error("driver 100%s gone");
  });
  RunFor(2, [](int) { LetTheServerHaveItsLock(); });
  EXPECT_EQ(scans, 2);
  EXPECT_EQ(LogLines(), std::vector<std::string>{"ERROR MIDI scan failed: driver 100%s gone"});
  // The scan that failed gave its locks back.
  EXPECT_EQ(GetMidiEndpointRegistry().deviceLock.HoldsOfThisThread(), 0u);
  EXPECT_EQ(theUsbServer.load()->midiLock.load()->HoldsOfThisThread(), 0u);
  winmm.TakeCalls();
}

TEST_F(Service, ReplacesTheServerWhenItIsStartedASecondTime) {
  RunFor(1);
  UsbServer* const first = theUsbServer;
  RunFor(1);
  EXPECT_NE(theUsbServer.load(), first);
  EXPECT_EQ(threads.Made(), 2);
}

TEST_F(Service, IsWhatTheServiceThreadRuns) {
  FakeRegistry registry(calls);
  FakeLibrary libraries(calls);
  StartService();
  ASSERT_EQ(threads.Made(), 1);
  clock.WhenSleeping([&](std::uint32_t) { ServiceRunning = false; });
  EXPECT_EQ(threads.Run(1), 0u);
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{5000});
  EXPECT_EQ(threads.Made(), 2);
  EXPECT_NE(theUsbServer.load(), nullptr);
}

TEST_F(Service, StopOfTheServiceThreadEndsNothing) {
  FakeRegistry registry(calls);
  FakeLibrary libraries(calls);
  StartService();
  auto* const thread = static_cast<CThread*>(threads.ParameterOf(1));
  int sleeps = 0;
  clock.WhenSleeping([&](std::uint32_t) {
    thread->Stop();
    if (++sleeps == 3) ServiceRunning = false;
  });
  threads.Run(1);
  EXPECT_FALSE(thread->Running());
  EXPECT_EQ(sleeps, 3);
}

}  // namespace
}  // namespace corvalint
