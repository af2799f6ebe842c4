// How the console host's doctor judges what it finds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/doctor.h"
#include "host/evidence.h"

namespace corvalint::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string kSubscribed = "2026-11-16 01:48:06 [12] INFO Subscribed for notifications: 0\n";
const std::string kArrived = "2026-11-16 01:48:06 [14] INFO Device connected: ipad\n";
const std::string kConnected = "2026-11-16 01:48:06 [15] DEBUG AMDeviceConnect() = 0x0\n";
const std::string kStream = "2026-11-16 01:48:06 [15] INFO USBMuxConnectByPort OK\n";
const std::string kAnnounced = "receiving add_remote_source: App || 7\n";

TEST(EvidenceTest, IsReadFromWholeLines) {
  Evidence evidence = ReadEvidence(kSubscribed + kArrived + kConnected + kStream, kAnnounced);
  EXPECT_EQ(evidence.subscribed, 0u);
  EXPECT_THAT(evidence.devices, ElementsAre("ipad"));
  EXPECT_EQ(evidence.connectResult, 0u);
  EXPECT_TRUE(evidence.streamOpened);
  EXPECT_EQ(evidence.streamResult, std::nullopt);
  EXPECT_THAT(evidence.announced, ElementsAre("source \"App\""));

  // A line whose end has not been written yet says nothing.
  evidence = ReadEvidence("x INFO Device connected: ip", "receiving add_remote_source: A || 7");
  EXPECT_THAT(evidence.devices, IsEmpty());
  EXPECT_THAT(evidence.announced, IsEmpty());
}

TEST(EvidenceTest, WhatWasRefusedKeepsItsNumber) {
  Evidence evidence = ReadEvidence(
      "a INFO Subscribed for notifications: 3892314113\r\n"
      "a DEBUG AMDeviceConnect() = 0xe8000065\n"
      "a ERROR USBMuxConnectByPort = 1234, handle=0\n"
      "a INFO Subscribed for notifications: no number\n",
      "");
  EXPECT_EQ(evidence.subscribed, std::nullopt);
  EXPECT_EQ(evidence.connectResult, 0xE8000065u);
  EXPECT_EQ(evidence.streamResult, 0x1234u);
  EXPECT_FALSE(evidence.streamOpened);
  EXPECT_EQ(ReadEvidence("a INFO Subscribed for notifications: 3892314113\r\n", "").subscribed,
            0xE8000001u);
}

TEST(EvidenceTest, WhatWentIsForgotten) {
  Evidence evidence = ReadEvidence(kArrived + kArrived + "z INFO Device disconnected: ipad\n" +
                                       "z INFO Device disconnected: another\n",
                                   kAnnounced + kAnnounced +
                                       "receiving add_remote_destination: A || B || 8\n"
                                       "receiving remove_remote_source: App || 7\n");
  EXPECT_THAT(evidence.devices, ElementsAre("ipad"));
  EXPECT_THAT(evidence.announced, ElementsAre("destination \"A || B\""));
}

TEST(EvidenceTest, TwoAnswersMakeADeviceUsable) {
  EXPECT_TRUE(IsUsableConnection(0));
  EXPECT_TRUE(IsUsableConnection(0xE8000065));
  EXPECT_FALSE(IsUsableConnection(0xE8000028));
  EXPECT_FALSE(IsUsableConnection(1));
}

// A machine on which everything is as it should be, until a test breaks it.
class DoctorTest : public ::testing::Test {
 protected:
  DoctorTest() {
    hands.folder = [] { return std::string("C:\\host"); };
    hands.logRefusal = [this] { return logRefusal; };
    hands.bindBridge = [this] { return Loading("bridge"); };
    hands.registryText = [this](const char*, const char* value) -> std::optional<std::string> {
      if (std::ranges::count(missing, value) > 0) return std::nullopt;
      return value == std::string("InstallDir") ? "C:\\InstallDir" : deviceLibrary;
    };
    hands.searchIn = [this](const std::string& folder) { searched = folder; };
    hands.load = [this](const std::string& name, const std::vector<const char*>&) {
      return Loading(name);
    };
    hands.portRefusal = [this] { return portRefusal; };
    hands.countMidi = [] { return MidiCounts{1, 2}; };
    hands.startBridge = [this] { started = true; };
    hands.devices = [this] { return started ? devices : 0; };
    hands.log = [this] { return started ? log : std::string(); };
    hands.console = [this] { return console; };
    hands.listen = [this](int) { return heard; };
    hands.sleep = [this](int milliseconds) {
      slept += milliseconds;
      if (onSleep) onSleep();
    };
  }

  LibraryFinding Loading(const std::string& name) {
    if (std::ranges::count(missing, name) > 0) return {"", "", name + " cannot be loaded"};
    return {name.starts_with("C:") ? name : "C:\\" + name, "1.2.3.4", ""};
  }

  // The name of the first broken link, or none.
  std::string Examine(int waitSeconds = 1, int listenSeconds = 1) {
    Doctor doctor(hands, [this](const Link& link) { links[link.name] = link; });
    std::optional<Link> broken = doctor.Examine(waitSeconds, listenSeconds);
    return broken ? broken->name : "none";
  }

  Instruments hands;
  std::string logRefusal;
  std::string portRefusal;
  std::vector<std::string> missing;
  std::string deviceLibrary = "C:\\itunesmobiledevice.DLL";
  std::string searched;
  bool started = false;
  unsigned int devices = 1;
  std::string log = kSubscribed + kArrived + kConnected + kStream;
  std::string console = kAnnounced;
  std::vector<HeardInput> heard = {{"Keys", 1, 0}, {"Silent", 0, 0}, {"Busy", 0, 4}};
  int slept = 0;
  std::function<void()> onSleep;
  std::map<std::string, Link> links;
};

TEST_F(DoctorTest, AWholeChainHoldsAtEachLinkAndIsNotWaitedFor) {
  EXPECT_EQ(Examine(), "none");
  EXPECT_EQ(links.size(), 17u);
  for (const auto& [name, link] : links) {
    EXPECT_EQ(link.state, LinkState::kHolds) << name;
    EXPECT_EQ(link.advice, "") << name;
  }
  EXPECT_EQ(slept, 0);
  EXPECT_EQ(searched, "C:\\InstallDir");
  EXPECT_EQ(links["asl"].found, "C:\\ASL, version 1.2.3.4");
  EXPECT_EQ(links["midi"].found, "1 message at \"Keys\"; could not be opened: \"Busy\" (result 4)");
}

TEST_F(DoctorTest, TheFirstOfSeveralBrokenLinksIsNamed) {
  missing = {"ASL", "iTunesMobileDeviceDLL"};
  portRefusal = "no";
  EXPECT_EQ(Examine(), "asl");
  EXPECT_EQ(links["device-folder"].state, LinkState::kBroken);
  EXPECT_EQ(links["port-driver"].state, LinkState::kBroken);
  EXPECT_EQ(links["device"].state, LinkState::kUnknown);
}

TEST_F(DoctorTest, ADeviceLibraryOfAnotherNameIsNoneForTheBridge) {
  deviceLibrary = "C:\\MobileDevice.dll";
  EXPECT_EQ(Examine(), "device-library");
  EXPECT_EQ(links["device-library"].found,
            "C:\\MobileDevice.dll is not called iTunesMobileDevice.dll, as the bridge asks");
  EXPECT_EQ(links["device-service"].state, LinkState::kUnknown);
}

TEST_F(DoctorTest, WithoutTheLogOnlyWhatItTellsIsUnknown) {
  logRefusal = "access denied";
  log.clear();
  EXPECT_EQ(Examine(), "log");
  EXPECT_EQ(links["device-service"].state, LinkState::kUnknown);
  EXPECT_EQ(links["device"].state, LinkState::kHolds);
  EXPECT_EQ(links["device"].found, "1 device");
  EXPECT_EQ(links["connection"].state, LinkState::kUnknown);
  EXPECT_EQ(links["app"].state, LinkState::kUnknown);
  EXPECT_EQ(links["endpoints"].state, LinkState::kHolds);
}

TEST_F(DoctorTest, WithoutTheBridgeNothingIsStarted) {
  missing = {"bridge"};
  EXPECT_EQ(Examine(), "bridge");
  EXPECT_FALSE(started);
  EXPECT_EQ(links["endpoints"].state, LinkState::kUnknown);
  EXPECT_EQ(links["midi"].state, LinkState::kHolds);
}

TEST_F(DoctorTest, WhatTakesItsTimeIsWaitedForAndNoLonger) {
  devices = 0;
  onSleep = [this] {
    if (slept == 1500) devices = 1;
  };
  EXPECT_EQ(Examine(2), "none");
  EXPECT_EQ(slept, 1500);

  devices = 0;
  onSleep = nullptr;
  slept = 0;
  EXPECT_EQ(Examine(2), "device");
  EXPECT_EQ(slept, 2000);
}

TEST_F(DoctorTest, ADeviceThatDoesNotAnswerAndOneThatRefusesAreToldApart) {
  log = kSubscribed + kArrived;
  EXPECT_EQ(Examine(0), "connection");
  EXPECT_EQ(links["connection"].found, "the device does not answer");
  log += "a DEBUG AMDeviceConnect() = 0xe8000028\n";
  EXPECT_EQ(Examine(0), "connection");
  EXPECT_EQ(links["connection"].found, "the device refuses: 0xE8000028");
  log = kSubscribed + kArrived + kConnected;
  EXPECT_EQ(Examine(0), "app");
  EXPECT_EQ(links["app"].found, "nothing answers at port 23451 of the device");
}

TEST_F(DoctorTest, ASilentServiceIsBroken) {
  log = kArrived + kConnected + kStream;
  EXPECT_EQ(Examine(0), "device-service");
  EXPECT_EQ(links["device-service"].found, "has not answered");
}

TEST_F(DoctorTest, NothingIsListenedForWhenThatIsNotWanted) {
  heard.clear();
  EXPECT_EQ(Examine(0, 0), "none");
  EXPECT_EQ(links["midi"].state, LinkState::kUnknown);
  EXPECT_EQ(Examine(0, 2), "midi");
  EXPECT_EQ(links["midi"].found, "nothing heard in 2 seconds");
}

TEST(DoctorTextTest, TellsLinksAndTheVerdict) {
  Link link{"asl", LinkState::kBroken, "ASL \"cannot\" be loaded", "install it"};
  EXPECT_EQ(LinkText(link), "broken   asl                 ASL \"cannot\" be loaded");
  EXPECT_EQ(LinkDocument(link),
            R"({"kind":"link","link":"asl","state":"broken","found":"ASL \"cannot\" be loaded",)"
            R"("advice":"install it"})");
  EXPECT_EQ(VerdictText(link),
            "The first broken link is asl: ASL \"cannot\" be loaded\nWhat to do: install it");
  EXPECT_EQ(VerdictText(std::nullopt), "No link is broken.");
  EXPECT_EQ(VerdictDocument(link, 7),
            R"({"kind":"verdict","exit":7,"broken":"asl","advice":"install it"})");
  EXPECT_EQ(VerdictDocument(std::nullopt, 0), R"({"kind":"verdict","exit":0,"broken":null})");
}

}  // namespace
}  // namespace corvalint::host
