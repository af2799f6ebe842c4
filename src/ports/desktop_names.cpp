#include "ports/desktop_names.h"

namespace corvalint {

void DesktopNames::Add(const std::string& name) {
  CriticalSectionScope hold(lock);
  ++present[name];
}

void DesktopNames::Remove(const std::string& name) {
  CriticalSectionScope hold(lock);
  const auto entry = present.find(name);
  if (entry == present.end() || --entry->second > 0) return;
  if (scans > 0) leftDuringScan.insert(name);
  present.erase(entry);
}

bool DesktopNames::Contains(const std::string& name) const {
  CriticalSectionScope hold(lock);
  return present.count(name) != 0 || leftDuringScan.count(name) != 0;
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
