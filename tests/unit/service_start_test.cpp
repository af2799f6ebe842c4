#include "startup/service_start.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "corvalint_wrapper.h"
#include "platform/socket.h"
#include "service/cthread.h"
#include "service/log.h"
#include "startup/service_thread.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/deferred_threads.h"
#include "support/fake_clock.h"
#include "support/fake_library.h"
#include "support/fake_process.h"
#include "support/fake_registry.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::ConsoleCapture;
using test::DeferredThreads;
using test::FakeClock;
using test::FakeLibrary;
using test::FakeProcess;
using test::FakeRegistry;
using Calls = CallLog::Calls;

const std::string kSupportKey = "SOFTWARE\\Apple Inc.\\Apple Application Support";
const std::string kOpenSupport = "open(" + kSupportKey + ")";

class ServiceStart : public testing::Test {
 protected:
  ServiceStart() {
    noted = &calls;
    socketAnswer = 0;
    static const SocketApi kSockets = [] {
      SocketApi api = SocketApi::System();
      api.startUp = [] {
        noted->Add("startUp()");
        return socketAnswer;
      };
      return api;
    }();
    Install<SocketApi>(&kSockets);
    LogResetForTest();
  }
  ~ServiceStart() override {
    LogResetForTest();
    Install<SocketApi>(nullptr);
  }

  std::string LogText(const std::string& name = "C__host_pellora.log") const {
    std::string text;
    const std::string bytes = process.Folder().Read(name);
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t end = bytes.find('\n', at) + 1;
      const std::string line = bytes.substr(at, end - at);
      text += line.substr(line.find("] ") + 2);
      at = end;
    }
    return text;
  }

  static inline CallLog* noted = nullptr;
  static inline int socketAnswer = 0;
  ConsoleCapture console;
  CallLog calls;
  FakeClock clock;
  FakeProcess process{calls};
  FakeRegistry registry{calls};
  FakeLibrary libraries{calls};
  DeferredThreads threads{calls};
};

const Calls kOneStart = {"pinModule()",
                         "sharpenTimers()",
                         "startUp()",
                         "executablePath()",
                         "openFile(C:\\host\\pellora.log, r)",
                         "openFile(C:\\host\\pellora.log, a+)",
                         kOpenSupport,
                         "create() = 1"};

TEST_F(ServiceStart, PreparesTheProcessAndThenStartsOneThread) {
  StartService();
  EXPECT_EQ(calls.Take(), kOneStart);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(ServiceStart, IsWhatTheHostCalls) {
  corvalintServerStart();
  EXPECT_EQ(calls.Take(), kOneStart);
}

TEST_F(ServiceStart, LoadsTheDeviceLibrariesBetweenTheLogAndTheThread) {
  registry.SetValue(kSupportKey, "InstallDir", "C:\\Support");
  StartService();
  EXPECT_EQ(
      calls.Take(),
      (Calls{"pinModule()", "sharpenTimers()", "startUp()", "executablePath()",
             "openFile(C:\\host\\pellora.log, r)", "openFile(C:\\host\\pellora.log, a+)",
             kOpenSupport, "read(InstallDir, size 4096, type 1)", "close()",
             "setDllDirectory(C:\\Support)", "load(ASL)", "load(CoreFoundation)",
             "open(SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared)", "create() = 1"}));
}

TEST_F(ServiceStart, LogsTheLoadingOfTheDeviceLibraries) {
  StartService();
  EXPECT_EQ(LogText(),
            "INFO LoadUsbLibraries\n"
            "ERROR Could not locate 'Apple Application Support' folder path in registry: "
            "ABORTING\n");
}

TEST_F(ServiceStart, LetsTheLogHoldEveryLevelFromThenOn) {
  registry.SetValue(kSupportKey, "InstallDir", "C:\\Support");
  StartService();
  const std::string before = LogText();
  LogDebug("a frame was dropped");
  EXPECT_EQ(LogText(), before + "DEBUG a frame was dropped\n");
  LogWrite(5, "beyond");
  EXPECT_EQ(LogText(), before + "DEBUG a frame was dropped\n");
}

TEST_F(ServiceStart, GivesTheThreadAServiceThatIsMarkedAsRunning) {
  StartService();
  ASSERT_EQ(threads.Made(), 1);
  EXPECT_EQ(threads.ProcedureOf(1), &ThreadProc);
  auto* const thread = static_cast<CThread*>(threads.ParameterOf(1));
  EXPECT_NE(dynamic_cast<ServiceThread*>(thread), nullptr);
  EXPECT_TRUE(thread->Running());
}

TEST_F(ServiceStart, GoesOnWithoutSockets) {
  socketAnswer = 10091;
  StartService();
  EXPECT_EQ(calls.Take(), kOneStart);
}

TEST_F(ServiceStart, GoesOnWithoutAFileForItsLog) {
  process.RefuseFiles(true);
  StartService();
  EXPECT_EQ(calls.Take(), kOneStart);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(ServiceStart, TellsTheHostNothingWhenNoThreadCanBeMade) {
  threads.Refuse();
  StartService();
  EXPECT_EQ(calls.Take().back(), "create() = none");
  EXPECT_EQ(threads.Made(), 0);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(ServiceStart, ASecondCallStartsASecondServiceWithTheSameLog) {
  StartService();
  calls.Take();
  const std::string first = LogText();
  process.SetExecutablePath("D:\\other\\other.exe");
  StartService();
  EXPECT_EQ(calls.Take(), (Calls{"pinModule()", "sharpenTimers()", "startUp()", "executablePath()",
                                 kOpenSupport, "create() = 2"}));
  EXPECT_EQ(LogText(), first + first);
  EXPECT_EQ(process.Folder().Names(), std::vector<std::string>{"C__host_pellora.log"});
  EXPECT_NE(threads.ParameterOf(1), threads.ParameterOf(2));
}

TEST_F(ServiceStart, KeepsAFailureOnItsWayToItself) {
  process.WhenAskedForPath([] { throw std::runtime_error("no path"); });
  EXPECT_NO_THROW(StartService());
  EXPECT_EQ(console.Text(), "BUG: log not initialized!");
  LogInit("C:\\host\\pellora.log");
  EXPECT_NO_THROW(StartService());
  EXPECT_EQ(LogText(), "ERROR service not started: no path\n");
  EXPECT_EQ(threads.Made(), 0);
}

// --- the folder of the host

class HostFolderOf : public ServiceStart {
 protected:
  std::string Of(const std::string& path) {
    process.SetExecutablePath(path);
    return HostFolder();
  }
};

TEST_F(HostFolderOf, IsThePathUpToItsLastBackslash) {
  EXPECT_EQ(Of("C:\\Program Files\\Host\\host.exe"), "C:\\Program Files\\Host");
  EXPECT_EQ(Of("C:\\host.exe"), "C:");
  EXPECT_EQ(Of("\\\\server\\share\\host.exe"), "\\\\server\\share");
  EXPECT_EQ(Of("C:\\a/b.exe"), "C:");
  EXPECT_EQ(Of("C:\\a\\"), "C:\\a");
}

TEST_F(HostFolderOf, IsEmptyWithoutABackslashOrWithNothingBeforeIt) {
  EXPECT_EQ(Of("host.exe"), "");
  EXPECT_EQ(Of(""), "");
  EXPECT_EQ(Of("\\host.exe"), "");
}

TEST_F(HostFolderOf, KeepsEveryByteOfALongPathAndOfOtherAlphabets) {
  const std::string folder = "C:\\" + std::string(5000, 'd') + "\\M\xC3\xBCller\\\xE9\x9F\xB3";
  EXPECT_EQ(Of(folder + "\\host.exe"), folder);
}

TEST_F(HostFolderOf, OfAHostWithoutOnePutsTheLogBelowTheRoot) {
  process.SetExecutablePath("host.exe");
  StartService();
  const Calls all = calls.Take();
  EXPECT_EQ(all.at(4), "openFile(\\pellora.log, r)");
  EXPECT_EQ(all.at(5), "openFile(\\pellora.log, a+)");
  EXPECT_EQ(process.Folder().Names(), std::vector<std::string>{"_pellora.log"});
}

TEST_F(HostFolderOf, IsNeverAFormat) {
  process.SetExecutablePath("C:\\100%s%n\\host.exe");
  StartService();
  EXPECT_EQ(calls.Take().at(4), "openFile(C:\\100%s%n\\pellora.log, r)");
}

}  // namespace
}  // namespace corvalint
