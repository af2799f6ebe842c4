#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/library.h"
#include "platform/missing_libraries.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/thread.h"

namespace corvalint {
namespace {

// --- clock

TEST(Clock, TicksAtTenMegahertzAndNeverBackwards) {
  const ClockApi& clock = ClockApi::System();
  EXPECT_EQ(clock.frequency(), 10'000'000);
  std::int64_t before = clock.counter();
  for (int i = 0; i < 1000; ++i) {
    const std::int64_t now = clock.counter();
    ASSERT_GE(now, before);
    before = now;
  }
}

TEST(Clock, SleepLastsAtLeastItsMilliseconds) {
  const ClockApi& clock = ClockApi::System();
  const std::int64_t before = clock.counter();
  clock.sleep(3);
  EXPECT_GE(clock.counter() - before, 3 * clock.frequency() / 1000);
}

TEST(Clock, LocalTimeIsThatOfTheCalendar) {
  setenv("TZ", "HERE-05:45", 1);  // nowhere near universal time
  tzset();
  const std::time_t before = std::time(nullptr);
  const LocalTime now = ClockApi::System().localTime();
  std::tm parts{};
  parts.tm_year = now.year - 1900;
  parts.tm_mon = now.month - 1;
  parts.tm_mday = now.day;
  parts.tm_hour = now.hour;
  parts.tm_min = now.minute;
  parts.tm_sec = now.second;
  parts.tm_isdst = -1;
  const std::time_t told = std::mktime(&parts);
  EXPECT_GE(told, before);
  EXPECT_LE(told, std::time(nullptr));
}

// --- critical section; the thread-safety analysis cannot follow what is unbalanced on purpose

TEST(CriticalSection, CountsTheHoldsOfItsOwnerOnly) CORVALINT_UNCHECKED_LOCKING {
  CriticalSection section(4000);
  EXPECT_TRUE(section.Initialised());
  EXPECT_EQ(section.HoldsOfThisThread(), 0u);
  section.Enter();
  section.Enter();
  EXPECT_EQ(section.HoldsOfThisThread(), 2u);
  std::uint32_t elsewhere = 99;
  std::thread([&] { elsewhere = section.HoldsOfThisThread(); }).join();
  EXPECT_EQ(elsewhere, 0u);
  section.Leave();
  EXPECT_EQ(section.HoldsOfThisThread(), 1u);
  section.Leave();
  EXPECT_EQ(section.HoldsOfThisThread(), 0u);
  EXPECT_EQ(section.StrayLeaves(), 0u);
}

TEST(CriticalSection, IgnoresAndCountsALeaveByAnotherThread) CORVALINT_UNCHECKED_LOCKING {
  CriticalSection section;
  section.Leave();
  EXPECT_EQ(section.StrayLeaves(), 1u);

  section.Enter();
  std::thread([&]() CORVALINT_UNCHECKED_LOCKING { section.Leave(); }).join();
  EXPECT_EQ(section.StrayLeaves(), 2u);
  EXPECT_EQ(section.HoldsOfThisThread(), 1u);

  std::atomic<bool> entered{false};
  std::thread other([&]() CORVALINT_UNCHECKED_LOCKING {
    section.Enter();
    entered = true;
    section.Leave();
  });
  ClockApi::System().sleep(10);
  EXPECT_FALSE(entered);
  section.Leave();
  other.join();
  EXPECT_TRUE(entered);
}

TEST(CriticalSection, LetsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  CriticalSection section;
  int sum = 0;  // not atomic: a lock that let two threads in would lose a count or raise a race
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const CriticalSectionScope scope(section);
        ++sum;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sum, kThreads * kRounds);
}

TEST(HoldScope, GivesBackWhatWasLeftBehindOrGivenAway) CORVALINT_UNCHECKED_LOCKING {
  CriticalSection section;
  {
    const HoldScope scope(section);
    section.Enter();
  }
  EXPECT_EQ(section.HoldsOfThisThread(), 0u);

  section.Enter();
  section.Enter();
  {
    const HoldScope scope(section);
    section.Leave();
    section.Leave();
    EXPECT_EQ(section.HoldsOfThisThread(), 0u);
  }
  EXPECT_EQ(section.HoldsOfThisThread(), 2u);
  section.Leave();
  section.Leave();
  EXPECT_EQ(section.StrayLeaves(), 0u);
}

// --- thread

struct Seen {
  std::uint32_t givenId = 0;
  std::uint32_t givenIdInThread = 0;
  std::uint32_t ownId = 0;
  std::atomic<bool> done{false};
};

std::uint32_t Look(void* parameter) {
  auto* const seen = static_cast<Seen*>(parameter);
  seen->givenIdInThread = seen->givenId;
  seen->ownId = ThreadApi::System().currentId();
  seen->done = true;
  seen->done.notify_all();
  return 0;
}

TEST(Thread, RunsUnderTheIdThatItsCreatorWasGiven) {
  const ThreadApi& threads = ThreadApi::System();
  Seen seen;
  const ThreadHandle handle = threads.create(Look, &seen, &seen.givenId);
  ASSERT_NE(handle, nullptr);
  EXPECT_NE(seen.givenId, 0u);
  seen.done.wait(false);
  EXPECT_EQ(seen.ownId, seen.givenId);
  EXPECT_EQ(seen.givenIdInThread, seen.givenId);
  EXPECT_NE(seen.ownId, threads.currentId());
  threads.close(handle);
}

TEST(Thread, OutlivesItsHandle) {
  const ThreadApi& threads = ThreadApi::System();
  Seen seen;
  static std::atomic<bool> go;
  go = false;
  const ThreadHandle handle = threads.create(
      [](void* parameter) {
        go.wait(false);
        return Look(parameter);
      },
      &seen, nullptr);
  ASSERT_NE(handle, nullptr);
  threads.close(handle);
  EXPECT_FALSE(seen.done);
  go = true;
  go.notify_all();
  seen.done.wait(false);
  EXPECT_NE(seen.ownId, 0u);
}

TEST(Thread, IdsOfForeignThreadsStayAndDiffer) {
  const ThreadApi& threads = ThreadApi::System();
  const std::uint32_t own = threads.currentId();
  EXPECT_NE(own, 0u);
  EXPECT_EQ(threads.currentId(), own);
  std::uint32_t other = 0;
  std::thread([&] { other = threads.currentId(); }).join();
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, own);
}

// --- process

// A folder of its own, gone after the test.
class FileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "platform_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // The file's path as the library writes it, with backslashes.
  std::string Path(const char* name) const {
    std::string path = (folder / name).string();
    for (char& letter : path) {
      if (letter == '/') letter = '\\';
    }
    return path;
  }
  std::string Bytes(const char* name) const {
    std::ifstream file(folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const ProcessApi& process = ProcessApi::System();
  std::filesystem::path folder;
};

TEST_F(FileTest, OpensBackslashPathsAndKeepsLineEnds) {
  std::FILE* file = process.openFile(Path("a.log").c_str(), "w");
  ASSERT_NE(file, nullptr);
  EXPECT_NE(fcntl(fileno(file), F_GETFD) & FD_CLOEXEC, 0);
  std::fputs("one\ntwo\r\n", file);
  std::fclose(file);
  file = process.openFile(Path("a.log").c_str(), "a+");
  ASSERT_NE(file, nullptr);
  std::fputs("three\n", file);
  std::fclose(file);
  EXPECT_EQ(Bytes("a.log"), "one\ntwo\r\nthree\n");
}

TEST_F(FileTest, AnswersNullForAFileThatIsNotThere) {
  EXPECT_EQ(process.openFile(Path("none\\at\\all").c_str(), "r"), nullptr);
}

TEST(Process, ExecutablePathIsThisTestWithBackslashes) {
  std::string path = ProcessApi::System().executablePath();
  EXPECT_EQ(path.find('/'), std::string::npos);
  ASSERT_FALSE(path.empty());
  EXPECT_EQ(path.front(), '\\');
  for (char& letter : path) {
    if (letter == '\\') letter = '/';
  }
  EXPECT_TRUE(std::filesystem::equivalent(path, "/proc/self/exe"));
}

TEST(Process, AnsiTextIsLatin1Here) {
  const std::string text("a\0\x80\xff", 4);
  EXPECT_EQ(ProcessApi::System().ansiFromLatin1(text), text);
}

// --- what is missing

TEST(Registry, HasNoKeysHere) {
  RegistryKey key = &key;
  EXPECT_FALSE(RegistryApi::System().open("SOFTWARE", &key));
  RegistryApi::System().close(&key);
  EXPECT_EQ(key, nullptr);
}

TEST(Library, LoadsNothingHere) {
  EXPECT_EQ(LibraryApi::System().load("CoreFoundation"), nullptr);
  EXPECT_FALSE(LibraryApi::System().setDllDirectory("folder"));
}

TEST(MissingLibraries, WinmmHasNoDevicesAndNoHandles) {
  const WinMidiApi& midi = WinMidiApi::System();
  EXPECT_EQ(&midi, &MissingWinMidi());
  EXPECT_EQ(midi.midiInGetNumDevs(), 0u);
  EXPECT_EQ(midi.midiOutGetNumDevs(), 0u);

  MidiInCaps inCaps{};
  MidiOutCaps outCaps{};
  void* handle = nullptr;
  EXPECT_EQ(midi.midiInGetDevCapsA(0, &inCaps, sizeof inCaps), kMidiBadDevice);
  EXPECT_EQ(midi.midiOutGetDevCapsA(0, &outCaps, sizeof outCaps), kMidiBadDevice);
  EXPECT_EQ(midi.midiInOpen(&handle, 0, 0, 0, kMidiCallbackNull), kMidiBadDevice);
  EXPECT_EQ(midi.midiOutOpen(&handle, 0, 0, 0, kMidiCallbackNull), kMidiBadDevice);
  EXPECT_EQ(handle, nullptr);

  for (const auto operation : {midi.midiInClose, midi.midiInStart, midi.midiInStop,
                               midi.midiInReset, midi.midiOutClose, midi.midiOutReset}) {
    EXPECT_EQ(operation(nullptr), kMidiInvalidHandle);
  }
  MidiHeader header{};
  for (const auto operation :
       {midi.midiInPrepareHeader, midi.midiInUnprepareHeader, midi.midiInAddBuffer,
        midi.midiOutPrepareHeader, midi.midiOutUnprepareHeader, midi.midiOutLongMsg}) {
    EXPECT_EQ(operation(nullptr, &header, sizeof header), kMidiInvalidHandle);
  }
}

TEST(MissingLibraries, TheDriverMakesNoPorts) {
  const VirtualMidiApi& driver = VirtualMidiApi::System();
  EXPECT_EQ(&driver, &MissingVirtualMidi());
  EXPECT_EQ(driver.virtualMIDICreatePortEx2(u"port", nullptr, 0, 65535, kVirtualMidiParseReceived),
            nullptr);
  const std::uint8_t note[] = {0x90, 60, 100};
  EXPECT_EQ(driver.virtualMIDISendData(nullptr, note, 3), 0);
  driver.virtualMIDIClosePort(nullptr);
}

TEST(MissingLibraries, TheDeviceLibraryRefusesEverything) {
  const MobileDeviceApi& device = MobileDeviceApi::System();
  EXPECT_EQ(&device, &MissingMobileDevice());
  char text[] = "kept";
  EXPECT_EQ(device.cfStringMakeConstantString("key"), nullptr);
  EXPECT_EQ(device.cfStringGetCString(nullptr, text, sizeof text, kCoreStringAscii), 0);
  EXPECT_STREQ(text, "kept");
  void* notification = nullptr;
  EXPECT_EQ(device.amDeviceNotificationSubscribe(nullptr, 0, 0, 0, &notification),
            kDeviceLibraryMissing);
  EXPECT_EQ(notification, nullptr);
  EXPECT_EQ(device.amDeviceNotificationUnsubscribe(nullptr), kDeviceLibraryMissing);
  EXPECT_EQ(device.amRestoreRegisterForDeviceNotifications(nullptr, nullptr, nullptr, nullptr, 0,
                                                           nullptr),
            kDeviceLibraryMissing);
  EXPECT_EQ(device.amDeviceCopyValue(nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(device.amDeviceCopyDeviceIdentifier(nullptr), nullptr);
  EXPECT_EQ(device.amDeviceConnect(nullptr), kDeviceLibraryMissing);
  EXPECT_EQ(device.amDeviceDisconnect(nullptr), kDeviceLibraryMissing);
  EXPECT_EQ(device.amDeviceGetConnectionId(nullptr), 0u);
  std::int64_t socket = 0;
  EXPECT_EQ(device.usbMuxConnectByPort(0, 0, &socket), kDeviceLibraryMissing);
  EXPECT_EQ(socket, 0);
}

// --- seam

TEST(Seam, ATestsOwnTableIsInForceUntilItIsTakenBack) {
  static const ClockApi standing{.counter = [] { return std::int64_t{42}; },
                                 .frequency = ClockApi::System().frequency,
                                 .sleep = ClockApi::System().sleep,
                                 .localTime = ClockApi::System().localTime};
  Install(&standing);
  EXPECT_EQ(Use<ClockApi>().counter(), 42);
  Install<ClockApi>(nullptr);
  EXPECT_EQ(&Use<ClockApi>(), &ClockApi::System());
}

}  // namespace
}  // namespace corvalint
