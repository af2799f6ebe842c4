#include "harness/desk.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace corvalint::harness {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSupportKey = "Software\\Apple Inc.\\Apple Application Support";
constexpr const char* kDeviceKey = "Software\\Apple Inc.\\Apple Mobile Device Support\\Shared";

void CopyInto(const fs::path& file, const fs::path& folder) {
  fs::copy_file(file, folder / file.filename(), fs::copy_options::overwrite_existing);
}

}  // namespace

fs::path WindowsBuildTree() {
  const char* const named = std::getenv("CORVALINT_WINDOWS_DIR");
  return named != nullptr && *named != '\0' ? named : CORVALINT_WINDOWS_DIR;
}

Desk::Desk(const DeskOptions& options) : folder(temp.Path() / options.folder) {
  LayOutFiles(options);
  const fs::path prefix = temp.Path() / "prefix";
  MakeWinePrefix(prefix, Registry(options));
  control = std::make_unique<DeskControl>();
  Process::Setup setup;
  setup.command = {"wine", (Folder() / options.program.filename()).string()};
  setup.command.insert(setup.command.end(), options.arguments.begin(), options.arguments.end());
  setup.directory = Folder();
  setup.environment = WineEnvironment(prefix);
  setup.environment["CORVALINT_DESK_CONTROL"] =
      "127.0.0.1:" + std::to_string(control->ControlPort());
  for (const auto& [name, value] : options.environment) setup.environment[name] = value;
  host = std::make_unique<Host>(setup);
  const bool loadedAtStart = options.winmm || (options.supportKey && options.installDir);
  if (loadedAtStart && !control->WaitUntilConnected()) {
    throw std::runtime_error("the desk did not connect: " + host->GetProcess().Errors());
  }
  if (options.open) control->Open();
}

void Desk::LayOutFiles(const DeskOptions& options) {
  const fs::path built = WindowsBuildTree();
  const fs::path apple = temp.Path() / "apple";
  fs::create_directories(Folder());
  fs::create_directories(apple);
  CopyInto(built / options.program, Folder());
  for (const fs::path& file : options.files) CopyInto(built / file, Folder());
  CopyInto(built / "desk/corvalint_desk.dll", Folder());
  if (options.winmm) CopyInto(built / "desk/winmm.dll", Folder());
  if (options.virtualMidi) CopyInto(built / "desk/teVirtualMIDI64.dll", Folder());
  if (options.asl) CopyInto(built / "desk/apple/ASL.dll", apple);
  if (options.coreFoundation) CopyInto(built / "desk/apple/CoreFoundation.dll", apple);
  if (options.mobileDevice) CopyInto(built / "desk/apple/iTunesMobileDevice.dll", apple);
  if (options.configuration) {
    std::ofstream(Folder() / "pellora.conf", std::ios::binary) << *options.configuration;
  }
}

RegistryValues Desk::Registry(const DeskOptions& options) const {
  const fs::path apple = temp.Path() / "apple";
  RegistryValues values;
  if (options.supportKey) {
    values[{kSupportKey, options.installDir ? "InstallDir" : ""}] =
        options.installDirText.value_or(WindowsPath(apple) + "\\");
  }
  if (options.deviceKey) {
    values[{kDeviceKey, options.deviceLibrary ? "iTunesMobileDeviceDLL" : ""}] =
        options.deviceLibraryText.value_or(WindowsPath(apple / "iTunesMobileDevice.dll"));
  }
  return values;
}

std::string Desk::Log() const {
  std::ifstream file(Folder() / "pellora.log", std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool Desk::WaitForLog(std::string_view text, std::chrono::milliseconds limit) const {
  constexpr std::chrono::milliseconds kBetweenLooks{20};
  const auto end = std::chrono::steady_clock::now() + limit;
  while (Log().find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

}  // namespace corvalint::harness
