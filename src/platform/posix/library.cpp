#include "platform/library.h"

namespace corvalint {
namespace {

// The libraries that are asked for exist on Windows only.

bool SetFolder(const char*) { return false; }

LibraryHandle Load(const char*) { return nullptr; }

}  // namespace

const LibraryApi& LibraryApi::System() {
  static constexpr LibraryApi table{.setDllDirectory = SetFolder, .load = Load};
  return table;
}

}  // namespace corvalint
