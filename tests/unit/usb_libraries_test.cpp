#include "usb/usb_libraries.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "service/log.h"
#include "support/call_log.h"
#include "support/fake_library.h"
#include "support/fake_registry.h"
#include "support/temp_folder.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::FakeLibrary;
using test::FakeRegistry;
using test::TempFolder;
using Calls = CallLog::Calls;

const std::string kSupportKey = "SOFTWARE\\Apple Inc.\\Apple Application Support";
const std::string kDeviceKey = "SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared";
const std::string kFolder = "C:\\Program Files\\Support\\";
const std::string kLibrary = "C:\\Device\\iTunesMobileDevice.dll";
const std::string kOpenSupport = "open(" + kSupportKey + ")";
const std::string kOpenDevice = "open(" + kDeviceKey + ")";
const std::string kReadFolder = "read(InstallDir, size 4096, type 1)";
const std::string kReadLibrary = "read(iTunesMobileDeviceDLL, size 4096, type 1)";
const std::string kBegin = "INFO LoadUsbLibraries";
const std::string kNoSupport =
    "ERROR Could not locate 'Apple Application Support' folder path in registry: ABORTING";
const std::string kNoDeviceSupport =
    "ERROR Could not locate 'Apple Mobile Device Support' folder path in registry: ABORTING";

// Calls and lines of the log stand in one list, in the order in which they happened.
class UsbLibrariesTest : public testing::Test {
 protected:
  UsbLibrariesTest() {
    LogResetForTest();
    LogInit(folder.PathOf("log").c_str());
    happened.Interleave([this] { return NewLogLines(); });
  }
  ~UsbLibrariesTest() override { LogResetForTest(); }

  // A text as the registry usually keeps it, with its zero byte.
  void SetFolder(const std::string& text) {
    registry.SetValue(kSupportKey, "InstallDir", text + '\0');
  }
  void SetLibrary(const std::string& path) {
    registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", path + '\0');
  }

  Calls Load() {
    LoadUsbLibraries();
    return happened.Take();
  }

  CallLog happened;
  FakeRegistry registry{happened};
  FakeLibrary libraries{happened};

 private:
  Calls NewLogLines() {
    Calls lines;
    const std::string text = folder.Read("log");
    for (std::size_t end; (end = text.find('\n', readSoFar)) != std::string::npos;) {
      const std::string line = text.substr(readSoFar, end - readSoFar);
      lines.push_back(line.substr(line.find("] ") + 2));
      readSoFar = end + 1;
    }
    return lines;
  }

  TempFolder folder;
  std::size_t readSoFar = 0;
};

TEST_F(UsbLibrariesTest, LoadsAllThreeLibrariesFromTheFoldersInTheRegistry) {
  SetFolder(kFolder);
  SetLibrary(kLibrary);
  EXPECT_EQ(Load(),
            (Calls{kBegin, kOpenSupport, kReadFolder, "close()", "setDllDirectory(" + kFolder + ")",
                   "load(ASL)", "load(CoreFoundation)", kOpenDevice, kReadLibrary, "close()",
                   "INFO iTunesMobileDeviceDLL: " + kLibrary, "load(" + kLibrary + ")"}));
}

TEST_F(UsbLibrariesTest, LoadsNothingWithoutTheSupportKey) {
  SetLibrary(kLibrary);
  EXPECT_EQ(Load(), (Calls{kBegin, kOpenSupport, kNoSupport}));
}

TEST_F(UsbLibrariesTest, LoadsNothingWithoutTheSupportFolderAndClosesTheKeyTwice) {
  registry.AddKey(kSupportKey);
  SetLibrary(kLibrary);
  EXPECT_EQ(Load(),
            (Calls{kBegin, kOpenSupport, kReadFolder, "close()",
                   "ERROR Could not locate 'Apple Application Support' folder path in 32 bit "
                   "registry",
                   "close(forgotten)", kNoSupport}));
}

TEST_F(UsbLibrariesTest, LoadsTheSupportLibrariesWithoutTheDeviceKey) {
  SetFolder(kFolder);
  EXPECT_EQ(Load(),
            (Calls{kBegin, kOpenSupport, kReadFolder, "close()", "setDllDirectory(" + kFolder + ")",
                   "load(ASL)", "load(CoreFoundation)", kOpenDevice, kNoDeviceSupport}));
}

TEST_F(UsbLibrariesTest, LoadsTheSupportLibrariesWithoutTheDeviceLibrarysPath) {
  SetFolder(kFolder);
  registry.AddKey(kDeviceKey);
  EXPECT_EQ(Load(),
            (Calls{kBegin, kOpenSupport, kReadFolder, "close()", "setDllDirectory(" + kFolder + ")",
                   "load(ASL)", "load(CoreFoundation)", kOpenDevice, kReadLibrary,
                   "ERROR Could not locate 'Apple Mobile Device Support' folder path in 32 Bit "
                   "registry",
                   "close()", kNoDeviceSupport}));
}

TEST_F(UsbLibrariesTest, SaysWhichSupportLibrariesAreMissingAndGoesOn) {
  SetFolder(kFolder);
  SetLibrary(kLibrary);
  libraries.TakeAway("ASL");
  libraries.TakeAway("CoreFoundation");
  EXPECT_EQ(
      Load(),
      (Calls{kBegin, kOpenSupport, kReadFolder, "close()", "setDllDirectory(" + kFolder + ")",
             "load(ASL)", "ERROR Could not load ASL from '" + kFolder + "'", "load(CoreFoundation)",
             "ERROR Could not load CoreFoundation from '" + kFolder + "'", kOpenDevice,
             kReadLibrary, "close()", "INFO iTunesMobileDeviceDLL: " + kLibrary,
             "load(" + kLibrary + ")"}));
}

TEST_F(UsbLibrariesTest, SaysThatTheDeviceLibraryIsNotWhereTheRegistrySays) {
  SetFolder(kFolder);
  SetLibrary("C:\\gone.dll");
  libraries.TakeAway("C:\\gone.dll");
  EXPECT_EQ(Load(),
            (Calls{kBegin, kOpenSupport, kReadFolder, "close()", "setDllDirectory(" + kFolder + ")",
                   "load(ASL)", "load(CoreFoundation)", kOpenDevice, kReadLibrary, "close()",
                   "INFO iTunesMobileDeviceDLL: C:\\gone.dll", "load(C:\\gone.dll)",
                   "ERROR Couldn't locate C:\\gone.dll"}));
}

TEST_F(UsbLibrariesTest, GoesOnWhenTheFolderCannotBeSet) {
  SetFolder(kFolder);
  SetLibrary(kLibrary);
  libraries.RefuseDllDirectory();
  EXPECT_EQ(Load(),
            (Calls{kBegin, kOpenSupport, kReadFolder, "close()", "setDllDirectory(" + kFolder + ")",
                   "load(ASL)", "load(CoreFoundation)", kOpenDevice, kReadLibrary, "close()",
                   "INFO iTunesMobileDeviceDLL: " + kLibrary, "load(" + kLibrary + ")"}));
}

TEST_F(UsbLibrariesTest, DoesItAllAgainWhenCalledAgain) {
  SetFolder(kFolder);
  SetLibrary(kLibrary);
  const Calls first = Load();
  EXPECT_EQ(Load(), first);
}

// --- the registry's texts

// What was set as the DLL directory and loaded last.
std::string ArgumentOf(const Calls& calls, const std::string& function) {
  std::string argument = "never called";
  for (const std::string& call : calls) {
    if (call.rfind(function + "(", 0) == 0) {
      argument = call.substr(function.size() + 1, call.size() - function.size() - 2);
    }
  }
  return argument;
}

TEST_F(UsbLibrariesTest, EndsATextThatTheRegistryDoesNotEnd) {
  registry.SetValue(kSupportKey, "InstallDir", "C:\\Support");
  registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", "D:\\x.dll");
  const Calls calls = Load();
  EXPECT_EQ(ArgumentOf(calls, "setDllDirectory"), "C:\\Support");
  EXPECT_EQ(ArgumentOf(calls, "load"), "D:\\x.dll");
}

TEST_F(UsbLibrariesTest, ShowsNothingOfALongerTextThatWasReadBefore) {
  registry.SetValue(kSupportKey, "InstallDir", std::string(300, 's'));
  registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", "D");
  EXPECT_EQ(ArgumentOf(Load(), "load"), "D");
}

TEST_F(UsbLibrariesTest, TakesATextThatFillsItsBuffer) {
  const std::string longFolder(4096, 'f');
  const std::string longPath(4096, 'p');
  registry.SetValue(kSupportKey, "InstallDir", longFolder);
  registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", longPath);
  const Calls calls = Load();
  EXPECT_EQ(ArgumentOf(calls, "setDllDirectory"), longFolder);
  EXPECT_EQ(ArgumentOf(calls, "load"), longPath);
}

TEST_F(UsbLibrariesTest, CannotReadATextThatIsLongerThanItsBuffer) {
  registry.SetValue(kSupportKey, "InstallDir", std::string(4097, 'f'));
  EXPECT_EQ(Load().back(), kNoSupport);
}

TEST_F(UsbLibrariesTest, TakesAnEmptyText) {
  registry.SetValue(kSupportKey, "InstallDir", "");
  registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", "");
  const Calls calls = Load();
  EXPECT_EQ(ArgumentOf(calls, "setDllDirectory"), "");
  EXPECT_EQ(ArgumentOf(calls, "load"), "");
}

TEST_F(UsbLibrariesTest, TakesValuesOfOtherTypesAsBytes) {
  registry.SetValue(kSupportKey, "InstallDir", "%ProgramFiles%\\Support", 2);
  registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", "D:\\%s%n.dll", 3);
  libraries.TakeAway("D:\\%s%n.dll");
  const Calls calls = Load();
  EXPECT_EQ(ArgumentOf(calls, "setDllDirectory"), "%ProgramFiles%\\Support");
  // The second read starts from the preset type and size again.
  EXPECT_EQ(calls.at(8), kReadLibrary);
  EXPECT_EQ(calls.at(10), "INFO iTunesMobileDeviceDLL: D:\\%s%n.dll");
  EXPECT_EQ(calls.back(), "ERROR Couldn't locate D:\\%s%n.dll");
}

}  // namespace
}  // namespace corvalint
