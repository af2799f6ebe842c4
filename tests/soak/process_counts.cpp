#include "soak/process_counts.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace corvalint::soak {

namespace {

// A number of /proc/self/status, 0 when it is not there.
std::uint64_t StatusOf(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    std::uint64_t value = 0;
    if (word == name + ":" && status >> value) return value;
  }
  return 0;
}

}  // namespace

ProcessCounts CountProcess() {
  ProcessCounts counts;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++counts.descriptors;
    std::error_code gone;  // the one that reads the folder may be
    const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (target.rfind("socket:", 0) == 0) ++counts.sockets;
  }
  counts.threads = StatusOf("Threads");
  counts.residentBytes = StatusOf("VmRSS") * 1024;
  const struct mallinfo2 heap = mallinfo2();
  counts.heapBytes = heap.uordblks + heap.hblkhd;
  return counts;
}

}  // namespace corvalint::soak
