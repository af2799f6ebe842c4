// Input: one byte of circumstances, then the bytes of a configuration file. What is read is
// compared with a second reader.

#include <cstdio>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "platform/process.h"
#include "service/config_file.h"

namespace corvalint::fuzz {

namespace {

// The one file there is, as it stands on disk.
struct ScriptedFile {
  std::string_view bytes;
  std::size_t at = 0;
  std::size_t mostAtOnce = 0;
  bool missing = false;
  bool failsAtEnd = false;  // a read error instead of the end
  int open = 0;
};

ScriptedFile file;
char streamBuffer[512];

ssize_t ReadSome(void* /*cookie*/, char* target, std::size_t size) {
  const std::string_view taken =
      file.bytes.substr(file.at, std::min({size, file.mostAtOnce, file.bytes.size() - file.at}));
  if (taken.empty() && file.failsAtEnd) return -1;
  std::memcpy(target, taken.data(), taken.size());
  file.at += taken.size();
  return static_cast<ssize_t>(taken.size());
}

int Close(void* /*cookie*/) {
  --file.open;
  return 0;
}

std::FILE* Open(const char* path, const char* mode) {
  CheckSame(path, "C:\\host\\pellora.conf", "path");
  Check(std::strcmp(mode, "r") == 0, "mode");
  if (file.missing) return nullptr;
  std::FILE* const stream = fopencookie(
      &file, mode, {.read = ReadSome, .write = nullptr, .seek = nullptr, .close = Close});
  std::setvbuf(stream, streamBuffer, _IOFBF, sizeof streamBuffer);
  ++file.open;
  return stream;
}

const ProcessApi kProcess{.executablePath = [] { return std::string(); },
                          .openFile = Open,
                          .pinModule = [] {},
                          .sharpenTimers = [] {},
                          .ansiFromLatin1 = [](const std::string& latin1) { return latin1; }};

bool IsBlank(char byte) { return byte == ' ' || byte == '\n' || byte == '\r'; }

std::string_view CutEnd(std::string_view text) {
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// False when the line ends the reading.
bool ReadLine(std::string_view line, ConfigMap& map) {
  if (line.empty() || line.front() == ';' || line.front() == '#' || line.front() == '=')
    return true;
  const auto* const equals = static_cast<const char*>(std::memchr(line.data(), '=', line.size()));
  if (equals == nullptr) return true;
  const auto keySize = static_cast<std::size_t>(equals - line.data());
  std::string_view value = line.substr(keySize + 1);
  while (!value.empty() && IsBlank(value.front())) value.remove_prefix(1);
  if (value.empty()) return false;
  map.insert_or_assign(std::string(CutEnd(line.substr(0, keySize))), std::string(CutEnd(value)));
  return true;
}

bool ReadLines(std::string_view text, ConfigMap& map) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (!ReadLine(text.substr(0, end), map)) return false;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return true;
}

void RunOnce(Input input) {
  const std::uint8_t circumstances = input.Byte();
  file = {};
  file.missing = circumstances % 64 == 63;
  file.failsAtEnd = (circumstances & 64) != 0;
  file.mostAtOnce = (circumstances & 128) != 0 ? 1 + circumstances % 7 : sizeof streamBuffer;
  file.bytes = input.Rest();

  ConfigMap expected{{"a", "from before"}};
  ConfigMap found = expected;
  const bool whole = file.missing || ReadLines(file.bytes, expected);
  bool failed = false;
  try {
    ReadConfigFile(found, "C:\\host\\pellora.conf");
  } catch (const std::out_of_range& failure) {
    CheckSame(failure.what(), "invalid string position", "text of the failure");
    failed = true;
  }
  Check(failed == !whole, failed ? "a file was refused" : "an empty value was accepted");
  Check(found == expected, "entries");
  Check(file.open == 0, "the file was not closed");
}

}  // namespace

}  // namespace corvalint::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  corvalint::Install<corvalint::ProcessApi>(&corvalint::fuzz::kProcess);
  corvalint::fuzz::RunOnce({data, size});
  return 0;
}
