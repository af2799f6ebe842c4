#include "selftest_support.h"

#include <cstdio>
#include <mutex>
#include <vector>

namespace corvalint::desk {

namespace {

std::mutex heardLock;
std::vector<std::string> heard;

}  // namespace

std::string Hex(const void* data, std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", static_cast<const unsigned char*>(data)[i]);
    text += digits;
  }
  return text;
}

void Hear(const std::string& what) {
  const std::lock_guard hold(heardLock);
  heard.push_back(what);
}

std::string HeardJson() {
  const std::lock_guard hold(heardLock);
  std::string json = "{\"heard\":[";
  for (std::size_t i = 0; i < heard.size(); ++i) {
    json += (i == 0 ? "\"" : ",\"") + Hex(heard[i].data(), heard[i].size()) + "\"";
  }
  heard.clear();
  return json + "]}";
}

}  // namespace corvalint::desk
