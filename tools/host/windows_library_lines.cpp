#include "host/windows_library_lines.h"

#include <fcntl.h>
#include <io.h>

#include <cstddef>
#include <mutex>
#include <thread>
#include <utility>

namespace corvalint::host {
namespace {

constexpr std::size_t kMostKept = std::size_t{1} << 20;

// What the library has printed, if it is kept. Never destroyed: its reader runs until the end.
struct Kept {
  std::mutex lock;
  std::string lines;
};

Kept& TheKept() {
  static auto* const kept = new Kept;
  return *kept;
}

void ReadLines(int pipe) {
  Kept& kept = TheKept();
  char piece[4096];
  for (int size = 0; (size = _read(pipe, piece, sizeof piece)) > 0;) {
    const std::lock_guard hold(kept.lock);
    kept.lines.append(piece, static_cast<std::size_t>(size));
    if (kept.lines.size() > kMostKept) kept.lines.erase(0, kept.lines.size() - kMostKept);
  }
}

// The end of a pipe whose other end is read until the program ends; -1 if there is none to be had.
int KeepLines() {
  int ends[2];
  if (_pipe(ends, 1 << 16, _O_BINARY | _O_NOINHERIT) != 0) return -1;
  std::thread(ReadLines, ends[0]).detach();
  return ends[1];
}

}  // namespace

std::FILE* SeparateOutput(LibraryLines lines, bool asBytes) {
  std::fflush(stdout);
  const int own = _dup(1);
  if (own < 0) return nullptr;
  int library = -1;
  if (lines == LibraryLines::kKept) {
    library = KeepLines();
  } else {
    library = lines == LibraryLines::kToStderr ? _dup(2) : _open("NUL", _O_WRONLY);
  }
  if (library < 0 || _dup2(library, 1) != 0) return nullptr;
  _close(library);
  return _fdopen(own, asBytes ? "wb" : "w");
}

std::string KeptLines() {
  Kept& kept = TheKept();
  const std::lock_guard hold(kept.lock);
  return kept.lines;
}

std::string TakeKeptLines() {
  Kept& kept = TheKept();
  const std::lock_guard hold(kept.lock);
  return std::exchange(kept.lines, {});
}

}  // namespace corvalint::host
