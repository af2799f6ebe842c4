#include "ports/desktop_names.h"

#include <array>
#include <string_view>
#include <utility>

namespace corvalint {

namespace {

constexpr char kCutMark = '\n';  // stands in no device's name

using KeyRoom = std::array<char, kLongestDesktopName>;

std::string_view CutKey(const std::string& name, KeyRoom& room) {
  const std::size_t kept = name.copy(room.data(), room.size() - 1);
  room[kept] = kCutMark;
  return {room.data(), kept + 1};
}

// The name itself or the text in `room`.
std::string_view KeyOf(const std::string& name, KeyRoom& room) {
  return name.size() > kLongestDesktopName ? CutKey(name, room) : std::string_view(name);
}

}  // namespace

void DesktopNames::Add(const std::string& name) {
  KeyRoom room;
  CriticalSectionScope hold(lock);
  ++present[std::string(KeyOf(name, room))];
}

void DesktopNames::Remove(const std::string& name) {
  KeyRoom room;
  CriticalSectionScope hold(lock);
  const auto entry = present.find(KeyOf(name, room));
  if (entry == present.end() || --entry->second > 0) return;
  auto node = present.extract(entry);
  if (scans > 0) leftDuringScan.insert(std::move(node));
}

bool DesktopNames::Contains(const std::string& name) const {
  KeyRoom room;
  CriticalSectionScope hold(lock);
  for (const std::string_view key : {std::string_view(name), CutKey(name, room)}) {
    if (present.count(key) != 0 || leftDuringScan.count(key) != 0) return true;
  }
  return false;
}

void DesktopNames::BeginScan() {
  CriticalSectionScope hold(lock);
  ++scans;
}

void DesktopNames::EndScan() {
  CriticalSectionScope hold(lock);
  if (--scans == 0) leftDuringScan.clear();
}

}  // namespace corvalint
