// Measures the ways through the whole library, group by group.
#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "bench/results.h"
#include "bench/ways.h"
#include "soak/host_folder.h"

namespace corvalint::bench {
namespace {

struct Group {
  std::string_view name;
  void (*measure)();
};

constexpr std::array kGroups{Group{"receiving", MeasureReceiving}, Group{"input", MeasureInput},
                             Group{"latency", MeasureLatency},     Group{"scale", MeasureScale},
                             Group{"idle", MeasureIdleMinute},     Group{"memory", MeasureMemory}};

int Main(int count, char** arguments) {
  for (const Group& group : kGroups) {
    if (count != 2 || group.name != arguments[1]) continue;
    const soak::TemporaryHostFolder folder;
    TakeStandardOutput();
    setpriority(PRIO_PROCESS, 0, -20);  // where it may: other programs disturb less
    group.measure();
    std::fflush(Results());
    return 0;
  }
  std::fprintf(stderr, "usage: %s GROUP\ngroups:", arguments[0]);
  for (const Group& group : kGroups) std::fprintf(stderr, " %s", group.name.data());
  std::fprintf(stderr, "\n");
  return 2;
}

}  // namespace
}  // namespace corvalint::bench

int main(int count, char** arguments) { return corvalint::bench::Main(count, arguments); }
