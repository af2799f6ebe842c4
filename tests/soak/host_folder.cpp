#include "soak/host_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
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
  std::string name = (std::filesystem::temp_directory_path() / "corvalint-soak-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "a folder for the log");
  }
  Folder() = name;
  static const ProcessApi kTable = [] {
    ProcessApi table = ProcessApi::System();
    table.executablePath = ExecutablePath;
    return table;
  }();
  Install<ProcessApi>(&kTable);
}

TemporaryHostFolder::~TemporaryHostFolder() {
  Install<ProcessApi>(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(Folder(), ignored);
}

std::uint64_t TemporaryHostFolder::LogSize() const {
  std::error_code missing;
  const auto size = std::filesystem::file_size(Folder() + "/pellora.log", missing);
  return missing ? 0 : size;
}

}  // namespace corvalint::soak
