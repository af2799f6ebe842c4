#pragma once

#include <set>
#include <string>

#include "platform/library.h"
#include "support/call_log.h"

namespace corvalint::test {

// Scripted dynamic libraries, installed for as long as it lives; one at a time. Every library can
// be loaded until one is taken away. It notes: setDllDirectory(C:\Support), load(ASL). For one
// thread.
class FakeLibrary {
 public:
  explicit FakeLibrary(CallLog& callLog);
  ~FakeLibrary();
  FakeLibrary(const FakeLibrary&) = delete;
  FakeLibrary& operator=(const FakeLibrary&) = delete;

  // A library of that name or path cannot be loaded.
  void TakeAway(const std::string& name) { missing.insert(name); }
  void RefuseDllDirectory() { directoryRefused = true; }

 private:
  struct Table;

  CallLog& log;
  std::set<std::string> missing;
  bool directoryRefused = false;
};

}  // namespace corvalint::test
