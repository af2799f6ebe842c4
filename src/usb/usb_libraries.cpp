#include "usb/usb_libraries.h"

#include <array>
#include <cstdint>

#include "platform/library.h"
#include "platform/registry.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kTextType = 1;  // REG_SZ
constexpr std::uint32_t kValueSize = 4096;

// One byte more than a value may fill: the registry need not end a text.
using ValueText = std::array<char, kValueSize + 1>;

bool ReadValue(RegistryKey key, const char* name, ValueText& text) {
  std::uint32_t size = kValueSize;
  std::uint32_t type = kTextType;
  if (!Use<RegistryApi>().read(key, name, text.data(), &size, &type)) return false;
  text[size < kValueSize ? size : kValueSize] = '\0';
  return true;
}

bool ReadSupportFolder(ValueText& folder) {
  const RegistryApi& registry = Use<RegistryApi>();
  RegistryKey key = nullptr;
  if (!registry.open("SOFTWARE\\Apple Inc.\\Apple Application Support", &key)) return false;
  const bool found = ReadValue(key, "InstallDir", folder);
  registry.close(&key);
  if (!found) {
    LogError("Could not locate 'Apple Application Support' folder path in 32 bit registry");
    // Closed once more on this path, on purpose; the seam has forgotten the key by now.
    registry.close(&key);
  }
  return found;
}

bool ReadDeviceLibraryPath(ValueText& path) {
  const RegistryApi& registry = Use<RegistryApi>();
  RegistryKey key = nullptr;
  if (!registry.open("SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared", &key)) {
    return false;
  }
  const bool found = ReadValue(key, "iTunesMobileDeviceDLL", path);
  if (!found) {
    LogError("Could not locate 'Apple Mobile Device Support' folder path in 32 Bit registry");
  }
  registry.close(&key);
  return found;
}

}  // namespace

void LoadUsbLibraries() {
  LogInfo("LoadUsbLibraries");
  const LibraryApi& libraries = Use<LibraryApi>();
  ValueText text{};
  if (!ReadSupportFolder(text)) {
    LogError("Could not locate 'Apple Application Support' folder path in registry: ABORTING");
    return;
  }
  libraries.setDllDirectory(text.data());
  if (libraries.load("ASL") == nullptr) LogError("Could not load ASL from '%s'", text.data());
  if (libraries.load("CoreFoundation") == nullptr) {
    LogError("Could not load CoreFoundation from '%s'", text.data());
  }
  if (!ReadDeviceLibraryPath(text)) {
    LogError("Could not locate 'Apple Mobile Device Support' folder path in registry: ABORTING");
    return;
  }
  LogInfo("iTunesMobileDeviceDLL: %s", text.data());
  if (libraries.load(text.data()) == nullptr) LogError("Couldn't locate %s", text.data());
}

}  // namespace corvalint
