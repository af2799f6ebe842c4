#include "soak/host_folder.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/process.h"

namespace corvalint::soak {

namespace {

std::string& Folder() {
  static auto* const folder = new std::string;
  return *folder;
}

std::string ExecutablePath() {
  std::string path = Folder() + "/host";
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

}  // namespace

TemporaryHostFolder::TemporaryHostFolder() {
  Folder() = folder.Path().string();
  static const ProcessApi kTable = [] {
    ProcessApi table = ProcessApi::System();
    table.executablePath = ExecutablePath;
    return table;
  }();
  Install<ProcessApi>(&kTable);
}

TemporaryHostFolder::~TemporaryHostFolder() { Install<ProcessApi>(nullptr); }

std::uint64_t TemporaryHostFolder::LogSize() const {
  std::error_code missing;
  const auto size = std::filesystem::file_size(folder.Path() / "pellora.log", missing);
  return missing ? 0 : size;
}

}  // namespace corvalint::soak
