#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace corvalint::test {

std::string TempFolder::Read(const std::string& name) const {
  std::ifstream file(PathOf(name), std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "no file " << name;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void TempFolder::Write(const std::string& name, const std::string& bytes) const {
  std::ofstream file(PathOf(name), std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  EXPECT_FALSE(file.fail()) << "cannot write " << name;
}

std::vector<std::string> TempFolder::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace corvalint::test
