#pragma once

#include <filesystem>

namespace corvalint::harness {

// An empty folder that is removed with everything in it at the end of its life.
class TempFolder {
 public:
  // Throws std::runtime_error if it cannot be made.
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Path() const { return path; }

 private:
  std::filesystem::path path;
};

}  // namespace corvalint::harness
