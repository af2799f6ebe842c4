#include "ports/desktop_names.h"

namespace corvalint {

namespace {

constexpr char kCutMark = '\n';  // stands in no device's name

std::string CutKey(const std::string& name) {
  return name.substr(0, kLongestDesktopName - 1) + kCutMark;
}

}  // namespace

std::string DesktopNames::KeyOf(const std::string& name) {
  return name.size() > kLongestDesktopName ? CutKey(name) : name;
}

void DesktopNames::Add(const std::string& name) {
  CriticalSectionScope hold(lock);
  ++present[KeyOf(name)];
}

void DesktopNames::Remove(const std::string& name) {
  CriticalSectionScope hold(lock);
  const auto entry = present.find(KeyOf(name));
  if (entry == present.end() || --entry->second > 0) return;
  if (scans > 0) leftDuringScan.insert(entry->first);
  present.erase(entry);
}

bool DesktopNames::Contains(const std::string& name) const {
  CriticalSectionScope hold(lock);
  for (const std::string& key : {name, CutKey(name)}) {
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
