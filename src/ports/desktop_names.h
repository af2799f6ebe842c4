#pragma once

#include <map>
#include <set>
#include <string>

#include "platform/critical_section.h"

namespace corvalint {

// The names under which this library's own ports stand on the desktop at the moment, from before
// the driver makes a port until after it has closed it. The scan of the desktop's devices asks it,
// so that the library never lists its own port, not even one that is on its way in or out. Any
// thread; its lock is a leaf.
class DesktopNames {
 public:
  void Add(const std::string& name) CORVALINT_EXCLUDES(lock);
  // Forgets one port of that name; while a scan runs, only when the scan has ended.
  void Remove(const std::string& name) CORVALINT_EXCLUDES(lock);
  bool Contains(const std::string& name) const CORVALINT_EXCLUDES(lock);

  // A scan reads the desktop's devices first and compares names afterwards; a port that is closed
  // in between must still be known by then.
  void BeginScan() CORVALINT_EXCLUDES(lock);
  void EndScan() CORVALINT_EXCLUDES(lock);

 private:
  mutable CriticalSection lock;
  std::map<std::string, int> present CORVALINT_GUARDED_BY(lock);  // ports of each name
  std::set<std::string> leftDuringScan CORVALINT_GUARDED_BY(lock);
  int scans CORVALINT_GUARDED_BY(lock) = 0;
};

}  // namespace corvalint
