#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvalint::test {

// An empty folder that goes away, with what is in it, at the end of its life.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& Path() const { return path; }
  std::string PathOf(const std::string& name) const { return path + "/" + name; }

  // The bytes of a file; a file that is not there fails the test.
  std::string Read(const std::string& name) const;
  void Write(const std::string& name, const std::string& bytes) const;
  // Names of what is in the folder, sorted.
  std::vector<std::string> Names() const;

 private:
  std::string path;
};

}  // namespace corvalint::test
