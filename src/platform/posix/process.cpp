#include "platform/process.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace corvalint {
namespace {

std::string ExecutablePath() {
  std::error_code error;
  std::string path = std::filesystem::read_symlink("/proc/self/exe", error).string();
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

std::FILE* OpenFile(const char* path, const char* mode) {
  std::string native(path);
  std::replace(native.begin(), native.end(), '\\', '/');
  return std::fopen(native.c_str(), (std::string(mode) + 'e').c_str());
}

// A native program is linked with the library as a whole; nothing can unload it.
void PinModule() {}

void SharpenTimers() {}

std::string AnsiFromLatin1(const std::string& latin1) { return latin1; }

}  // namespace

const ProcessApi& ProcessApi::System() {
  static constexpr ProcessApi table{
      .executablePath = ExecutablePath,
      .openFile = OpenFile,
      .pinModule = PinModule,
      .sharpenTimers = SharpenTimers,
      .ansiFromLatin1 = AnsiFromLatin1,
  };
  return table;
}

}  // namespace corvalint
