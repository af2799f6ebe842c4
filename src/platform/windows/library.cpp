#include "platform/library.h"

#include "platform/windows/system_headers.h"

namespace corvalint {
namespace {

bool SetFolder(const char* folder) { return SetDllDirectoryA(folder) != 0; }

LibraryHandle Load(const char* name) { return LoadLibraryA(name); }

}  // namespace

const LibraryApi& LibraryApi::System() {
  static constexpr LibraryApi table{.setDllDirectory = SetFolder, .load = Load};
  return table;
}

}  // namespace corvalint
