#pragma once

#include <functional>
#include <map>
#include <string>

#include "platform/critical_section.h"

namespace corvalint {

// The longest name of a device that winmm's ANSI calls give whole.
inline constexpr std::size_t kLongestDesktopName = 31;

// The names under which this library's own ports stand on the desktop at the moment, from before
// the driver makes a port until after it has closed it. The scan of the desktop's devices asks it,
// so that the library never lists its own port, not even one that is on its way in or out. Any
// thread; its lock is a leaf.
class DesktopNames {
 public:
  // Names are in the system's code page, in which a name of 31 units can grow over what winmm
  // gives; such a one is told by its first 30 bytes.
  void Add(const std::string& name) CORVALINT_EXCLUDES(lock);
  // Forgets one port of that name; while a scan runs, only when the scan has ended. Takes no memory
  // and never fails.
  void Remove(const std::string& name) CORVALINT_EXCLUDES(lock);
  bool Contains(const std::string& name) const CORVALINT_EXCLUDES(lock);

  // A scan reads the desktop's devices first and compares names afterwards; a port that is closed
  // in between must still be known by then.
  void BeginScan() CORVALINT_EXCLUDES(lock);
  void EndScan() CORVALINT_EXCLUDES(lock);

 private:
  using Ports = std::map<std::string, int, std::less<>>;  // how many there are of each key

  mutable CriticalSection lock;
  Ports present CORVALINT_GUARDED_BY(lock);
  Ports leftDuringScan CORVALINT_GUARDED_BY(lock);  // the numbers do not matter
  int scans CORVALINT_GUARDED_BY(lock) = 0;
};

}  // namespace corvalint
