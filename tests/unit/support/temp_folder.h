#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "harness/temp_folder.h"

namespace corvalint::test {

// An empty folder that goes away, with what is in it, at the end of its life. What goes wrong with
// its files fails the test.
class TempFolder {
 public:
  const std::string& Path() const { return path; }
  std::string PathOf(const std::string& name) const { return path + "/" + name; }

  // The bytes of a file; a file that is not there fails the test.
  std::string Read(const std::string& name) const;
  void Write(const std::string& name, const std::string& bytes) const;
  // Names of what is in the folder, sorted.
  std::vector<std::string> Names() const;

 private:
  const harness::TempFolder folder;
  const std::string path = folder.Path().string();
};

}  // namespace corvalint::test
