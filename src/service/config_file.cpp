#include "service/config_file.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "platform/process.h"

namespace corvalint {

namespace {

constexpr const char* kBlanks = " \n\r";

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// A line without its line feed; false at the end of the file or when reading fails.
bool ReadLine(std::FILE* file, std::string& line) {
  line.clear();
  int byte;
  while ((byte = std::fgetc(file)) != EOF) {
    if (byte == '\n') return true;
    line.push_back(static_cast<char>(byte));
  }
  return !line.empty();
}

std::string WithoutTrailingBlanks(const std::string& text) {
  const std::size_t last = text.find_last_not_of(kBlanks);
  return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

// An empty value is a failure of its own kind, on purpose: hosts know its text.
void AddEntry(ConfigMap& map, const std::string& line, std::size_t equals) {
  const std::size_t valueBegin = line.find_first_not_of(kBlanks, equals + 1);
  if (valueBegin == std::string::npos) throw std::out_of_range("invalid string position");
  map[WithoutTrailingBlanks(line.substr(0, equals))] =
      WithoutTrailingBlanks(line.substr(valueBegin));
}

}  // namespace

void ReadConfigFile(ConfigMap& map, const char* path) {
  const File file(Use<ProcessApi>().openFile(path, "r"));
  if (file == nullptr) return;
  std::string line;
  while (ReadLine(file.get(), line)) {
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos || equals == 0) continue;
    AddEntry(map, line, equals);
  }
}

}  // namespace corvalint
