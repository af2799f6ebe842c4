#include "host/doctor.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "host/words.h"

namespace corvalint::host {
namespace {

constexpr int kPollMilliseconds = 100;

const char* const kInstallApple =
    "install Apple's device support for the cable, which iTunes brings with it";
const char* const kDeviceLibrary = "iTunesMobileDevice.dll";
const char* const kNotLoaded = "not asked: the library before it is missing";
const char* const kNotStarted = "not asked: the bridge does not run";
const char* const kNotLogged = "not known: the log tells it, and cannot be written";

std::string Hex(std::uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", number);
  return text;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// Whether the path ends in that file name, in capitals or not.
bool IsNamed(const std::string& path, std::string_view name) {
  const std::size_t slash = path.find_last_of('\\');
  const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  return std::ranges::equal(file, name, [](unsigned char one, unsigned char other) {
    return std::tolower(one) == std::tolower(other);
  });
}

std::string LoadedText(const LibraryFinding& library) {
  return library.path + ", " +
         (library.version.empty() ? "tells no version" : "version " + library.version);
}

}  // namespace

std::optional<Link> Doctor::Examine(int waitSeconds, int listenSeconds) {
  limitSeconds = waitSeconds;
  ExamineLog();
  ExamineWinmm();
  ExamineBridge();
  ExamineAppleLibraries();
  ExaminePortDriver();
  ExamineMidiDevices();
  ExamineDevice();
  ExamineMidi(listenSeconds);
  return firstBroken;
}

void Doctor::ExamineLog() {
  const std::string refusal = instruments.logRefusal();
  logWritten = refusal.empty();
  if (logWritten) return Holds("log", instruments.folder() + "\\pellora.log can be written");
  Broken("log", instruments.folder() + "\\pellora.log cannot be written: " + refusal,
         "put the program and the library into a folder that you may write to, and see that "
         "pellora.log there is a file that is not read-only");
}

// Before the bridge, which cannot be loaded without it.
void Doctor::ExamineWinmm() {
  winmmLoaded = LibraryLink("winmm", "winmm.dll", {"midiInGetNumDevs", "midiOutGetNumDevs"},
                            "take away any other winmm.dll from the program's folder; Windows "
                            "brings its own, so if there is none, repair Windows");
}

void Doctor::ExamineBridge() {
  const LibraryFinding bridge = instruments.bindBridge();
  bridgeBound = bridge.failure.empty();
  if (bridgeBound) return Holds("bridge", LoadedText(bridge));
  Broken("bridge", bridge.failure,
         "put the corvalint_wrapper.dll that came with this program beside it");
}

// In the bridge's own order: the folder first, in which the two others are looked for.
void Doctor::ExamineAppleLibraries() {
  const std::string folder = RegistryLink(
      "support-folder", "SOFTWARE\\Apple Inc.\\Apple Application Support", "InstallDir");
  if (folder.empty()) {
    for (const char* link : {"asl", "core-foundation", "device-folder", "device-library"}) {
      Unknown(link,
              "not looked for: without its folder the bridge loads none of Apple's libraries");
    }
    return;
  }
  instruments.searchIn(folder);
  LibraryLink("asl", "ASL", {}, kInstallApple);
  const bool foundation =
      LibraryLink("core-foundation", "CoreFoundation",
                  {"__CFStringMakeConstantString", "CFStringGetCString"}, kInstallApple);
  const std::string path =
      RegistryLink("device-folder", "SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared",
                   "iTunesMobileDeviceDLL");
  if (path.empty()) return Unknown("device-library", kNotLoaded);
  LibraryFinding library = instruments.load(
      path, {"AMDeviceNotificationSubscribe", "AMDeviceNotificationUnsubscribe",
             "AMRestoreRegisterForDeviceNotifications", "AMDeviceCopyValue",
             "AMDeviceCopyDeviceIdentifier", "AMDeviceConnect", "AMDeviceDisconnect",
             "AMDeviceGetConnectionID", "USBMuxConnectByPort"});
  if (library.failure.empty() && !IsNamed(library.path, kDeviceLibrary)) {
    library.failure = library.path + " is not called " + kDeviceLibrary + ", as the bridge asks";
  }
  deviceLibraryLoaded = FindingLink("device-library", library, kInstallApple) && foundation;
}

void Doctor::ExaminePortDriver() {
  const char* const kInstallDriver =
      "install the teVirtualMIDI driver; without it apps make no ports on the desktop";
  const bool loaded = LibraryLink(
      "port-library", "teVirtualMIDI64.dll",
      {"virtualMIDICreatePortEx2", "virtualMIDISendData", "virtualMIDIClosePort"}, kInstallDriver);
  if (!loaded) return Unknown("port-driver", kNotLoaded);
  const std::string refusal = instruments.portRefusal();
  if (refusal.empty()) return Holds("port-driver", "has made a port and closed it");
  Broken("port-driver", "makes no port: " + refusal,
         "restart the computer, then install the teVirtualMIDI driver again");
}

void Doctor::ExamineMidiDevices() {
  if (!winmmLoaded) return Unknown("midi-devices", kNotLoaded);
  const MidiCounts counts = instruments.countMidi();
  const std::string found =
      Counted(counts.inputs, "MIDI input") + ", " + Counted(counts.outputs, "MIDI output");
  if (counts.inputs + counts.outputs > 0) return Holds("midi-devices", found);
  Broken("midi-devices", found,
         "plug a MIDI device in and switch it on; without one only apps can make ports");
}

void Doctor::ExamineDevice() {
  const char* const why = bridgeBound ? kNotLoaded : kNotStarted;
  if (bridgeBound) instruments.startBridge();
  if (!bridgeBound || !deviceLibraryLoaded) {
    for (const char* link : {"device-service", "device", "connection", "app", "endpoints"}) {
      Unknown(link, why);
    }
    return;
  }
  ExamineSubscription();
  Await([this] { return instruments.devices() > 0; });
  if (instruments.devices() == 0) {
    Broken("device", "no iOS device is attached",
           "plug the device in, unlock it, and tap Trust when it asks");
    for (const char* link : {"connection", "app", "endpoints"}) Unknown(link, "no device");
    return;
  }
  // The log is a moment behind the count.
  Await([this] { return !logWritten || !evidence.devices.empty(); });
  Holds("device", Counted(instruments.devices(), "device") +
                      (evidence.devices.empty() ? "" : ": " + Joined(evidence.devices)));
  ExamineConnection();
  ExamineEndpoints();
}

void Doctor::ExamineSubscription() {
  if (!logWritten) return Unknown("device-service", kNotLogged);
  Await([this] { return evidence.subscribed.has_value(); });
  if (!evidence.subscribed) {
    return Broken("device-service", "has not answered",
                  "restart the Apple Mobile Device Service, or the computer");
  }
  if (*evidence.subscribed == 0) return Holds("device-service", "tells of arrivals");
  Broken("device-service", "refuses to tell of arrivals: " + Hex(*evidence.subscribed),
         "restart the Apple Mobile Device Service, or the computer");
}

void Doctor::ExamineConnection() {
  if (!logWritten) {
    Unknown("connection", kNotLogged);
    return Unknown("app", kNotLogged);
  }
  const auto usable = [this] {
    return evidence.connectResult && IsUsableConnection(*evidence.connectResult);
  };
  Await([&] { return evidence.streamOpened || usable(); });
  if (!evidence.streamOpened && !usable()) {
    Broken("connection",
           evidence.connectResult ? "the device refuses: " + Hex(*evidence.connectResult)
                                  : std::string("the device does not answer"),
           "unlock the device, tap Trust when it asks, and leave recovery mode if it is in it");
    return Unknown("app", "not asked: the device gives no connection");
  }
  Holds("connection", "the device gives one");
  Await([this] { return evidence.streamOpened; });
  if (evidence.streamOpened) return Holds("app", "has taken a stream at port 23451");
  Broken("app",
         "nothing answers at port 23451 of the device" +
             (evidence.streamResult ? ": " + Hex(*evidence.streamResult) : std::string()),
         "open the companion app on the device and leave it open");
}

void Doctor::ExamineEndpoints() {
  if (logWritten && !evidence.streamOpened) return Unknown("endpoints", "no app");
  Await([this] { return !evidence.announced.empty(); });
  if (!evidence.announced.empty()) return Holds("endpoints", Joined(evidence.announced));
  Broken("endpoints", "the app has announced none",
         "let the app make a MIDI source or destination; see its settings");
}

void Doctor::ExamineMidi(int seconds) {
  if (seconds == 0) return Unknown("midi", "not listened for");
  std::uint64_t messages = 0;
  std::vector<std::string> heard;
  std::vector<std::string> refused;
  for (const HeardInput& input : instruments.listen(seconds)) {
    messages += input.messages;
    if (input.messages > 0) {
      heard.push_back(Counted(input.messages, "message") + " at \"" + input.name + '"');
    } else if (input.refused != 0) {
      refused.push_back('"' + input.name + "\" (result " + std::to_string(input.refused) + ")");
    }
  }
  std::string found =
      messages > 0 ? Joined(heard)
                   : "nothing heard in " + Counted(static_cast<std::uint64_t>(seconds), "second");
  if (!refused.empty()) found += "; could not be opened: " + Joined(refused);
  if (messages > 0) return Holds("midi", found);
  Broken("midi", found,
         "play a note while the doctor listens (--listen=20 gives more time), and end other "
         "programs that use the input");
}

std::string Doctor::RegistryLink(const char* link, const char* key, const char* value) {
  const std::optional<std::string> text = instruments.registryText(key, value);
  const std::string place = std::string("HKEY_LOCAL_MACHINE\\") + key + ", " + value;
  if (text && !text->empty()) {
    Holds(link, place + ": " + *text);
    return *text;
  }
  Broken(link, place + (text ? " is empty" : " is not there"), kInstallApple);
  return {};
}

bool Doctor::LibraryLink(const char* link, const std::string& name,
                         const std::vector<const char*>& exports, const char* advice) {
  return FindingLink(link, instruments.load(name, exports), advice);
}

bool Doctor::FindingLink(const char* link, const LibraryFinding& library, const char* advice) {
  if (library.failure.empty()) {
    Holds(link, LoadedText(library));
    return true;
  }
  Broken(link, library.failure, advice);
  return false;
}

void Doctor::Holds(const char* link, const std::string& found) {
  tell({link, LinkState::kHolds, found, ""});
}

void Doctor::Broken(const char* link, const std::string& found, const char* advice) {
  const Link broken{link, LinkState::kBroken, found, advice};
  if (!firstBroken) firstBroken = broken;
  tell(broken);
}

void Doctor::Unknown(const char* link, const std::string& why) {
  tell({link, LinkState::kUnknown, why, ""});
}

void Doctor::Await(const std::function<bool()>& condition) {
  for (int waited = 0;; waited += kPollMilliseconds) {
    evidence = ReadEvidence(instruments.log(), instruments.console());
    if (condition() || waited >= limitSeconds * 1000) return;
    instruments.sleep(kPollMilliseconds);
  }
}

}  // namespace corvalint::host
