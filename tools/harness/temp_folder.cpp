#include "harness/temp_folder.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace corvalint::harness {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
  std::string name = (fs::temp_directory_path() / "corvalint-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  path = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;  // a folder that stays behind harms nobody
  fs::remove_all(path, ignored);
}

}  // namespace corvalint::harness
