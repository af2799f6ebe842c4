#include "selftest_support.h"

#include <mutex>
#include <vector>

#include "text.h"

namespace corvalint::desk {

namespace {

std::mutex heardLock;
std::vector<std::string> heard;

}  // namespace

void Hear(const std::string& what) {
  const std::lock_guard hold(heardLock);
  heard.push_back(what);
}

std::string HeardJson() {
  const std::lock_guard hold(heardLock);
  std::string json = "{\"heard\":[";
  for (std::size_t i = 0; i < heard.size(); ++i) {
    json += (i == 0 ? "\"" : ",\"") + HexOf(heard[i]) + "\"";
  }
  heard.clear();
  return json + "]}";
}

}  // namespace corvalint::desk
