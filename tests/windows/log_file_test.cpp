// The bytes of pellora.log as the shipped DLL writes it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"

namespace corvalint::windows_test {
namespace {

using testing::ElementsAre;
using testing::Not;

constexpr std::size_t kLimit = 2097152;
constexpr const char* kSubscribed = "INFO Subscribed for notifications: 0";
constexpr const char* kMissing = "INFO Subscribed for notifications: 3892314113";
constexpr const char* kMissingError = "ERROR AMDeviceNotificationSubscribe = -402653183";

// A start on a machine laid out in some way, until the library has subscribed.
class Start {
 public:
  explicit Start(harness::DeskOptions options) : desk(Opened(std::move(options))) {
    EXPECT_TRUE(desk.WaitForLog("Subscribed for notifications: "));
    // The last line of a start stands behind that one, if there is one.
    EXPECT_TRUE(desk.GetHost().WaitUntilReady(kPatience));
    if (desk.Log().find("Subscribed for notifications: 0") == std::string::npos) {
      EXPECT_TRUE(desk.WaitForLog("AMDeviceNotificationSubscribe = "));
    }
  }

  std::vector<std::string> Texts() const { return TextsOf(LinesOf(desk.Log())); }
  std::string AppleFolder() const {
    return harness::WindowsPath(desk.Folder().parent_path() / "apple");
  }
  std::string LibraryLine() const {
    return "INFO iTunesMobileDeviceDLL: " + AppleFolder() + "\\iTunesMobileDevice.dll";
  }

 private:
  static harness::DeskOptions Opened(harness::DeskOptions options) {
    options.open = true;
    return options;
  }

  harness::Desk desk;
};

TEST(LogFile, LibrariesThatAreAllThereLeaveNoError) {
  const Start start({});
  EXPECT_THAT(start.Texts(),
              ElementsAre("INFO LoadUsbLibraries", start.LibraryLine(), kSubscribed, "? "));
}

TEST(LogFile, FolderOfTheSupportLibrariesWithoutItsValue) {
  harness::DeskOptions options;
  options.installDir = false;
  const Start start(options);
  EXPECT_THAT(
      start.Texts(),
      ElementsAre(
          "INFO LoadUsbLibraries",
          "ERROR Could not locate 'Apple Application Support' folder path in 32 bit registry",
          "ERROR Could not locate 'Apple Application Support' folder path in registry: ABORTING",
          kMissing, "? ", kMissingError));
}

TEST(LogFile, SupportLibrariesWithoutTheirKey) {
  harness::DeskOptions options;
  options.supportKey = false;
  const Start start(options);
  EXPECT_THAT(
      start.Texts(),
      ElementsAre(
          "INFO LoadUsbLibraries",
          "ERROR Could not locate 'Apple Application Support' folder path in registry: ABORTING",
          kMissing, "? ", kMissingError));
}

// The folder of the support libraries is searched when the device library is first called, and here
// it lies in that folder.
TEST(LogFile, DeviceLibraryWithoutItsValue) {
  harness::DeskOptions options;
  options.deviceLibrary = false;
  const Start start(options);
  EXPECT_THAT(
      start.Texts(),
      ElementsAre(
          "INFO LoadUsbLibraries",
          "ERROR Could not locate 'Apple Mobile Device Support' folder path in 32 Bit registry",
          "ERROR Could not locate 'Apple Mobile Device Support' folder path in registry: ABORTING",
          kSubscribed, "? "));
}

TEST(LogFile, DeviceLibraryWithoutItsKey) {
  harness::DeskOptions options;
  options.deviceKey = false;
  options.mobileDevice = false;
  const Start start(options);
  EXPECT_THAT(
      start.Texts(),
      ElementsAre(
          "INFO LoadUsbLibraries",
          "ERROR Could not locate 'Apple Mobile Device Support' folder path in registry: ABORTING",
          kMissing, "? ", kMissingError));
}

TEST(LogFile, PathOfTheDeviceLibraryThatDoesNotExist) {
  harness::DeskOptions options;
  options.deviceLibraryText = "Z:\\no where\\100%d.dll";
  options.mobileDevice = false;
  const Start start(options);
  EXPECT_THAT(
      start.Texts(),
      ElementsAre("INFO LoadUsbLibraries", "INFO iTunesMobileDeviceDLL: Z:\\no where\\100%d.dll",
                  "ERROR Couldn't locate Z:\\no where\\100%d.dll", kMissing, "? ", kMissingError));
}

TEST(LogFile, SupportLibrariesThatAreNotInTheirFolder) {
  harness::DeskOptions options;
  options.asl = false;
  options.coreFoundation = false;
  const Start start(options);
  const std::string folder = start.AppleFolder() + "\\";
  const auto texts = start.Texts();
  ASSERT_GE(texts.size(), 5u);
  EXPECT_EQ(texts[0], "INFO LoadUsbLibraries");
  EXPECT_EQ(texts[1], "ERROR Could not load ASL from '" + folder + "'");
  EXPECT_EQ(texts[2], "ERROR Could not load CoreFoundation from '" + folder + "'");
  EXPECT_EQ(texts[3], start.LibraryLine());
  // The device library itself is there and is used.
  EXPECT_EQ(texts[4], "INFO Subscribed for notifications: 0");
}

TEST(LogFile, SubscriptionThatFailsIsAnError) {
  harness::Desk desk;
  desk.Control().Fail("AMDeviceNotificationSubscribe", 7);
  desk.Control().Open();
  ASSERT_TRUE(desk.WaitForLog("AMDeviceNotificationSubscribe = "));
  EXPECT_THAT(TextsOf(LinesOf(desk.Log()), 2),
              ElementsAre("INFO Subscribed for notifications: 7", "? ",
                          "ERROR AMDeviceNotificationSubscribe = 7"));
}

// How many lines a start leaves, once the last of them is written.
std::size_t LinesOfStart(Bridge& bridge) {
  EXPECT_TRUE(bridge.GetDesk().WaitForLog("INFO Subscribed for notifications: 0\n\n"));
  return LinesOf(bridge.GetDesk().Log()).size();
}

TEST(LogFile, SingleLineFeedsAndTheFormOfALine) {
  Bridge bridge;
  LinesOfStart(bridge);
  const auto a = bridge.Plug("device-a");
  ASSERT_TRUE(a->Flush());
  const std::string log = bridge.GetDesk().Log();
  EXPECT_EQ(log.find('\r'), std::string::npos);
  EXPECT_EQ(log.back(), '\n');
  // The format of this line ends in a line feed of its own.
  const std::size_t subscribed = log.find("INFO Subscribed for notifications: 0\n\n");
  EXPECT_NE(subscribed, std::string::npos);
  const auto lines = LinesOf(log);
  const auto strange = std::count_if(lines.begin(), lines.end(),
                                     [](const LogLine& line) { return line.level == "?"; });
  EXPECT_EQ(strange, 1) << log;  // the empty line
}

// Seconds since 1970 of a line's time, read as if it were universal time.
std::int64_t SecondsOf(const std::string& line) {
  std::tm time{};
  std::istringstream(line) >> std::get_time(&time, "%Y-%m-%d %H:%M:%S");
  return timegm(&time);
}

TEST(LogFile, TimesAreLocal) {
  constexpr std::int64_t kEast = (5 * 60 + 45) * 60;
  harness::DeskOptions options;
  options.environment["TZ"] = "HERE-05:45";
  options.open = true;
  const std::int64_t before = std::time(nullptr) - 1;
  harness::Desk desk(options);
  ASSERT_TRUE(desk.WaitForLog("INFO Subscribed for notifications: 0\n\n"));
  const std::int64_t after = std::time(nullptr) + 1;
  const std::int64_t written = SecondsOf(desk.Log()) - kEast;
  EXPECT_GE(written, before);
  EXPECT_LE(written, after);
}

TEST(LogFile, ArrivalAndDepartureOfADeviceAreToldAtEveryLevel) {
  Bridge bridge;
  const std::size_t before = LinesOfStart(bridge);
  const auto a = bridge.Plug("device-a");
  ASSERT_TRUE(a->Flush());
  auto lines = LinesOf(bridge.GetDesk().Log());
  const std::string handle = std::to_string(a->App().Port());
  EXPECT_THAT(TextsOf(lines, before),
              ElementsAre("INFO notification(1)", "INFO Device connected: device-a",
                          "DEBUG BaseClientThread created", "DEBUG UsbClientThread()",
                          "DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0x0",
                          "DEBUG Device handle=" + handle, "DEBUG Opening port...",
                          "INFO USBMuxConnectByPort OK"));
  ASSERT_EQ(lines.size(), before + 9);
  // Each line names the thread that wrote it.
  const std::uint32_t library = lines[before].thread;
  const std::uint32_t client = lines[before + 4].thread;
  EXPECT_NE(library, client);
  EXPECT_EQ(lines[before + 3].thread, library);
  EXPECT_EQ(lines[before + 8].thread, client);

  const std::size_t connected = lines.size();
  a->Detach();
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("~BaseClientThread"));
  lines = LinesOf(bridge.GetDesk().Log());
  EXPECT_THAT(
      TextsOf(lines, connected),
      ElementsAre("INFO notification(2)", "INFO Device disconnected: device-a",
                  "DEBUG UsbClientThreadMidi::Stop()", "DEBUG UsbClientThread::PerformDisconnect()",
                  "DEBUG UsbClientThread::PerformDisconnect()", "DEBUG Finished",
                  "DEBUG UsbClientThread::Finalize()", "DEBUG UsbClientThreadMidi::Stop()",
                  "DEBUG UsbClientThread::PerformDisconnect()", "DEBUG ~UsbClientThread",
                  "DEBUG ~BaseClientThread"));
}

// What the device's client wrote at first; it tries again seconds later.
std::vector<std::string> TextsOfClient(const std::string& log, const std::string& device,
                                       std::size_t count) {
  auto lines = LinesOf(log);
  const auto arrival = std::find_if(lines.begin(), lines.end(), [&](const LogLine& line) {
    return line.message == "Device connected: " + device;
  });
  const auto first = std::find_if(arrival, lines.end(), [](const LogLine& line) {
    return line.message == "Connecting to device...";
  });
  if (first == lines.end()) return {};
  const std::uint32_t client = first->thread;
  lines.erase(lines.begin(), first);
  std::erase_if(lines, [&](const LogLine& line) { return line.thread != client; });
  lines.resize(std::min(lines.size(), count));
  return TextsOf(lines);
}

TEST(LogFile, DevicesThatDoNotConnect) {
  Bridge bridge;
  LinesOfStart(bridge);
  harness::DeviceSetup setup;
  setup.identifier = "100%s";
  setup.connectionId = 0xAB;
  setup.connectAnswers = {0xE8000065};
  setup.streamAnswers = {0x1234};
  bridge.Control().SetDevice("closed", setup);
  bridge.Control().Attach("closed");
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("USBMuxConnectByPort = "));
  EXPECT_THAT(TextsOfClient(bridge.GetDesk().Log(), "100%s", 6),
              ElementsAre("DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0xe8000065",
                          "DEBUG muxConnTmp = AB", "DEBUG Device handle=171",
                          "DEBUG Opening port...", "ERROR USBMuxConnectByPort = 1234, handle=0"));

  bridge.Control().SetDevice("refused", {.identifier = "refused", .connectAnswers = {0xE800000B}});
  bridge.Control().Attach("refused");
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("DEBUG Device handle=0"));
  EXPECT_THAT(TextsOfClient(bridge.GetDesk().Log(), "refused", 4),
              ElementsAre("DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0xe800000b",
                          "ERROR AMDeviceConnect = -402653173", "DEBUG Device handle=0"));

  bridge.Control().SetDevice(
      "recovering",
      {.identifier = "recovering", .connectionId = 0xCD, .connectAnswers = {0xE8000028}});
  bridge.Control().Attach("recovering");
  ASSERT_TRUE(bridge.GetDesk().WaitForLog("DEBUG muxConnTmp = CD"));
  EXPECT_THAT(TextsOfClient(bridge.GetDesk().Log(), "recovering", 3),
              ElementsAre("DEBUG Connecting to device...", "DEBUG AMDeviceConnect() = 0xe8000028",
                          "DEBUG muxConnTmp = CD"));
}

TEST(LogFile, BundlesAreToldWithTheirTimeTags) {
  Bridge bridge;
  LinesOfStart(bridge);
  const auto a = bridge.Plug("device-a");
  ASSERT_TRUE(a->Flush());
  const std::size_t before = LinesOf(bridge.GetDesk().Log()).size();
  const device::Bytes inner = device::EncodeBundle({});
  device::Bytes outer = device::EncodeBundle({inner});
  // Of the outer bundle's time tag the low 32 bits are shown.
  const device::Bytes tag{0xE6, 0x54, 0x32, 0x10, 0xAA, 0xBB, 0xCC, 0xDD};
  std::copy(tag.begin(), tag.end(), outer.begin() + 8);
  ASSERT_TRUE(a->App().SendPacket(outer));
  ASSERT_TRUE(a->Flush());
  EXPECT_THAT(TextsOf(LinesOf(bridge.GetDesk().Log()), before),
              ElementsAre("INFO Bundle started 2864434397", "INFO Bundle started 1",
                          "INFO Bundle finished 1", "INFO Bundle finished 2864434397"));
}

// Starts with a log of that size in the folder, with holes behind the bytes that are written.
class StartWithLog {
 public:
  explicit StartWithLog(std::size_t written, std::uintmax_t size = 0)
      : desk(Options()), former(written, 'x') {
    if (!former.empty()) former.back() = '\n';
    const std::filesystem::path file = desk.Folder() / "pellora.log";
    std::ofstream(file, std::ios::binary) << former;
    if (size > written) std::filesystem::resize_file(file, size);
    desk.GetHost().Ask("start");
    if (std::filesystem::file_size(file) > 2 * kLimit) throw std::runtime_error("not truncated");
    EXPECT_TRUE(desk.WaitForLog("INFO Subscribed for notifications: 0\n\n"));
  }

  std::string Log() const { return desk.Log(); }
  const std::string& Former() const { return former; }

 private:
  static harness::DeskOptions Options() {
    harness::DeskOptions options;
    options.arguments = {"--json", "--no-start"};
    options.open = true;
    return options;
  }

  harness::Desk desk;
  std::string former;
};

TEST(LogFile, AnOlderLogIsContinued) {
  const StartWithLog start(5000);
  const std::string log = start.Log();
  ASSERT_GT(log.size(), 5000u);
  EXPECT_EQ(log.substr(0, 5000), start.Former());
  EXPECT_EQ(TextsOf(LinesOf(log.substr(5000))).front(), "INFO LoadUsbLibraries");
}

// The last letter of the name is in no code page of one byte a letter.
TEST(LogFile, FolderNamesOfOtherAlphabetsHoldTheLog) {
  harness::DeskOptions options;
  options.folder = "M\xC3\xBCller \xE9\x9F\xB3 %d";
  options.environment["LC_ALL"] = "C.UTF-8";  // of Wine, for file names
  const Start start(options);
  EXPECT_THAT(start.Texts(),
              ElementsAre("INFO LoadUsbLibraries", start.LibraryLine(), kSubscribed, "? "));
}

TEST(LogFile, ALogOverTheLimitIsTruncatedAtStart) {
  const StartWithLog start(kLimit + 1);
  EXPECT_LT(start.Log().size(), 5000u);
  EXPECT_EQ(TextsOf(LinesOf(start.Log())).front(), "INFO LoadUsbLibraries");
}

// A position in such a file does not fit into the 32 bits of a Windows long.
TEST(LogFile, ALogOfSeveralGibibytesIsTruncatedAtStart) {
  const StartWithLog start(0, std::uintmax_t{5} << 30);
  EXPECT_LT(start.Log().size(), 5000u);
  EXPECT_EQ(TextsOf(LinesOf(start.Log())).front(), "INFO LoadUsbLibraries");
}

// The first line is still appended; with it the log is over the limit, and the second begins anew.
TEST(LogFile, ALogOfExactlyTheLimitIsAppendedTo) {
  const StartWithLog start(kLimit);
  EXPECT_LT(start.Log().size(), 5000u);
  const auto texts = TextsOf(LinesOf(start.Log()));
  EXPECT_THAT(texts.front(), testing::StartsWith("INFO iTunesMobileDeviceDLL: "));
  EXPECT_THAT(texts, Not(testing::Contains("INFO LoadUsbLibraries")));
}

}  // namespace
}  // namespace corvalint::windows_test
