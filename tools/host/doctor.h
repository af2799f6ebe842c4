#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/evidence.h"

namespace corvalint::host {

enum class LinkState { kHolds, kBroken, kUnknown };

// One link of the chain between an app and the desktop's programs, as the doctor found it.
struct Link {
  std::string name;  // stands in documents and in the manual, so it stays the same
  LinkState state = LinkState::kUnknown;
  std::string found;   // what was seen
  std::string advice;  // what to do; empty unless it is broken
};

// What came of loading a library.
struct LibraryFinding {
  std::string path;     // empty if it could not be loaded
  std::string version;  // "1.2.3.4", or empty if it tells none
  std::string failure;  // empty if it was loaded and exports what is needed
};

struct MidiCounts {
  unsigned int inputs = 0;
  unsigned int outputs = 0;
};

// What was heard at one MIDI input.
struct HeardInput {
  std::string name;
  std::uint64_t messages = 0;
  std::uint32_t refused = 0;  // why it could not be opened, a result of winmm; 0 if it could
};

// The doctor's hands: what it asks of the system, which is Windows or a test. Texts are UTF-8. An
// answer that is a reason is empty where there is nothing to complain of.
struct Instruments {
  std::function<std::string()> folder;         // of this program
  std::function<std::string()> logRefusal;     // why the log cannot be written
  std::function<LibraryFinding()> bindBridge;  // corvalint_wrapper.dll with its twenty exports
  std::function<std::optional<std::string>(const char* key, const char* value)> registryText;
  std::function<void(const std::string& folder)> searchIn;  // for the libraries loaded from now on
  std::function<LibraryFinding(const std::string& name, const std::vector<const char*>& exports)>
      load;
  std::function<std::string()> portRefusal;  // why the driver makes no port
  std::function<MidiCounts()> countMidi;
  std::function<void()> startBridge;
  std::function<unsigned int()> devices;  // as the bridge counts them
  std::function<std::string()> log;       // what the bridge has logged since the doctor began
  std::function<std::string()> console;   // and printed
  std::function<std::vector<HeardInput>(int seconds)> listen;
  std::function<void(int milliseconds)> sleep;
};

// Walks the chain from the log to a note that was heard. One thread.
class Doctor {
 public:
  using Tell = std::function<void(const Link& link)>;

  // The instruments outlive the object. `tellLink` is called with each link once it is examined.
  Doctor(const Instruments& hands, Tell tellLink) : instruments(hands), tell(std::move(tellLink)) {}

  // Examines every link that can be examined. `waitSeconds` is the limit for each of those that
  // take their time; with `listenSeconds` 0 nothing is listened for. The first broken link, or
  // none.
  std::optional<Link> Examine(int waitSeconds, int listenSeconds);

 private:
  void ExamineLog();
  void ExamineWinmm();
  void ExamineBridge();
  void ExamineAppleLibraries();
  void ExaminePortDriver();
  void ExamineMidiDevices();
  void ExamineDevice();
  void ExamineSubscription();
  void ExamineConnection();
  void ExamineEndpoints();
  void ExamineMidi(int seconds);

  std::string RegistryLink(const char* link, const char* key, const char* value);
  bool LibraryLink(const char* link, const std::string& name,
                   const std::vector<const char*>& exports, const char* advice);
  bool FindingLink(const char* link, const LibraryFinding& library, const char* advice);
  void Holds(const char* link, const std::string& found);
  void Broken(const char* link, const std::string& found, const char* advice);
  void Unknown(const char* link, const std::string& why);
  // Reads the evidence again until the condition holds or the time is over.
  void Await(const std::function<bool()>& condition);

  const Instruments& instruments;
  Tell tell;
  int limitSeconds = 0;
  bool logWritten = false;
  bool winmmLoaded = false;
  bool bridgeBound = false;
  bool deviceLibraryLoaded = false;
  Evidence evidence;
  std::optional<Link> firstBroken;
};

// The lines and documents about one link and about the end, without line ends.
std::string LinkText(const Link& link);
std::string LinkDocument(const Link& link);
std::string VerdictText(const std::optional<Link>& firstBroken);
std::string VerdictDocument(const std::optional<Link>& firstBroken, int exitCode);

}  // namespace corvalint::host
