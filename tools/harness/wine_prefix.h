#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <utility>

namespace corvalint::harness {

// String values under HKEY_LOCAL_MACHINE: {key, value name} to value. An empty value name makes the
// key alone.
using RegistryValues = std::map<std::pair<std::string, std::string>, std::string>;

// A Wine prefix of one's own in `folder`: its own registry, and the drive of a template that is
// made once for the build tree. Takes a few milliseconds once the template exists. Throws
// std::runtime_error if the template cannot be made.
void MakeWinePrefix(const std::filesystem::path& folder, const RegistryValues& values);

// What every Wine process of the harness has in its environment.
std::map<std::string, std::string> WineEnvironment(const std::filesystem::path& prefix);

// The Windows name of a native path.
std::string WindowsPath(const std::filesystem::path& path);

}  // namespace corvalint::harness
