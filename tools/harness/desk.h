#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/desk_control.h"
#include "harness/host.h"
#include "harness/temp_folder.h"
#include "harness/wine_prefix.h"

namespace corvalint::harness {

// How the machine is laid out before the product starts.
struct DeskOptions {
  // Registry: the keys, their values, and values other than the right ones.
  bool supportKey = true;  // the folder's key, and in it:
  bool installDir = true;
  bool deviceKey = true;  // the device library's key, and in it:
  bool deviceLibrary = true;
  std::optional<std::string> installDirText;
  std::optional<std::string> deviceLibraryText;

  // Stand-ins that are there. Without winmm Wine's own one answers, which has no devices here.
  bool winmm = true;
  bool virtualMidi = true;
  bool asl = true;
  bool coreFoundation = true;
  bool mobileDevice = true;

  // The program, found in the Windows build tree, and its arguments.
  std::filesystem::path program = "corvalint-host.exe";
  std::vector<std::string> arguments = {"--json"};
  // Program and product, copied beside the stand-ins under their own names.
  std::vector<std::filesystem::path> files = {"corvalint_wrapper.dll"};
  std::map<std::string, std::string> environment;
  std::optional<std::string> configuration;  // contents of pellora.conf

  // Name of the folder with the program.
  std::string folder = "host";

  // Open the desk at once, for tests that need nothing laid out before the first call.
  bool open = false;
};

// One run of the console host with the shipped DLL at the simulated desk, in a folder and a Wine
// prefix of its own. Everything ends and is removed with this object.
class Desk {
 public:
  // Starts the program and waits for the desk's connection if any stand-in is loaded at start.
  // Throws std::runtime_error if that does not come about.
  explicit Desk(const DeskOptions& options = {});

  DeskControl& Control() { return *control; }
  Host& GetHost() { return *host; }

  // The folder with the program, as the native system sees it.
  std::filesystem::path Folder() const { return folder; }

  // The log file's bytes; empty while there is none.
  std::string Log() const;
  bool WaitForLog(std::string_view text, std::chrono::milliseconds limit = kPatience) const;

 private:
  void LayOutFiles(const DeskOptions& options);
  RegistryValues Registry(const DeskOptions& options) const;

  TempFolder temp;
  std::filesystem::path folder;
  std::unique_ptr<DeskControl> control;
  std::unique_ptr<Host> host;  // ends before the control connection
};

// The build tree of the Windows programs: the environment variable CORVALINT_WINDOWS_DIR, or what
// the build was configured with.
std::filesystem::path WindowsBuildTree();

}  // namespace corvalint::harness
