// Runs a fuzz target over files, without the fuzzer: over each file of the folders that are named,
// and over each file that is named itself. A target may have replaced the stream of standard error,
// so this writes past it.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesOf(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// False when the file cannot be read. The target gets a block of exactly the file's size, so that a
// read beyond it is seen.
bool Run(const fs::path& file) {
  dprintf(STDERR_FILENO, "%s\n", file.c_str());
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return false;
  const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  const auto block = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), block.get());
  LLVMFuzzerTestOneInput(block.get(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& file : FilesOf(argv[i])) {
      if (!Run(file)) {
        dprintf(STDERR_FILENO, "%s cannot be read\n", file.c_str());
        return 1;
      }
      ++count;
    }
  }
  dprintf(STDERR_FILENO, "%zu inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
