#include "harness/wine_prefix.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "harness/process.h"

namespace corvalint::harness {

namespace fs = std::filesystem;

namespace {

// Bytes as the registry file wants them inside quotes.
std::string Escaped(const std::string& text) {
  std::string out;
  for (const char letter : text) {
    if (letter == '\\' || letter == '"') out += '\\';
    out += letter;
  }
  return out;
}

// Only one process at a time makes the template; others wait for it.
class FileLock {
 public:
  explicit FileLock(const fs::path& file)
      : fd(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (fd < 0 || flock(fd, LOCK_EX) != 0) {
      throw std::runtime_error("cannot lock " + file.string());
    }
  }
  ~FileLock() { close(fd); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int fd;
};

// Wine writes the registry when its last process has gone, and leaves services behind that keep it
// waiting; so the server is asked to end.
void InitializePrefix(const fs::path& prefix) {
  constexpr std::chrono::minutes kLongest{3};
  Process::Setup setup;
  setup.command = {"/bin/sh", "-c", "wine wineboot -i && wineserver -k && wineserver -w"};
  setup.environment = WineEnvironment(prefix);
  Process boot(setup);
  const std::optional<int> code = boot.WaitForExit(kLongest);
  if (!fs::exists(prefix / "system.reg")) {
    throw std::runtime_error("wine made no prefix (exit code " +
                             (code ? std::to_string(*code) : std::string("none")) +
                             "): " + boot.Errors());
  }
}

fs::path Template() {
  const fs::path prefix = CORVALINT_WINE_TEMPLATE;
  const fs::path ready = prefix / "ready";
  fs::create_directories(prefix.parent_path());
  const FileLock lock(prefix.string() + ".lock");
  if (fs::exists(ready)) return prefix;
  fs::remove_all(prefix);
  fs::create_directories(prefix);
  InitializePrefix(prefix);
  std::ofstream(ready) << "complete\n";
  return prefix;
}

}  // namespace

void MakeWinePrefix(const fs::path& folder, const RegistryValues& values) {
  const fs::path source = Template();
  fs::create_directories(folder / "dosdevices");
  for (const char* file : {"system.reg", "user.reg", "userdef.reg", ".update-timestamp"}) {
    fs::copy_file(source / file, folder / file);
  }
  fs::create_directory_symlink(fs::absolute(source / "drive_c"), folder / "drive_c");
  fs::create_directory_symlink("../drive_c", folder / "dosdevices" / "c:");
  fs::create_directory_symlink("/", folder / "dosdevices" / "z:");
  std::ofstream registry(folder / "system.reg", std::ios::app | std::ios::binary);
  for (const auto& [place, value] : values) {
    registry << "\n[" << Escaped(place.first) << "] 1700000000\n";
    if (!place.second.empty()) {
      registry << '"' << Escaped(place.second) << "\"=\"" << Escaped(value) << "\"\n";
    }
  }
}

std::map<std::string, std::string> WineEnvironment(const fs::path& prefix) {
  return {
      {"WINEPREFIX", prefix.string()},
      {"WINEDEBUG", "-all"},
      {"WINEDLLOVERRIDES", "winmm=n,b;mscoree,mshtml=;winemenubuilder.exe=d"},
      {"WINEARCH", "win64"},
      {"LC_ALL", "C"},  // code page 1252
      {"TMPDIR", prefix.string()},
      {"DISPLAY", ""},
  };
}

std::string WindowsPath(const fs::path& path) {
  std::string text = "Z:" + fs::absolute(path).string();
  for (char& letter : text) {
    if (letter == '/') letter = '\\';
  }
  return text;
}

}  // namespace corvalint::harness
