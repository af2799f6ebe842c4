#include "host/windows_screen.h"

#include <windows.h>
// Needs windows.h before it.
#include <io.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "host/windows_text.h"

namespace corvalint::host {
namespace {

// A second buffer of the console, shown in place of the usual one.
class ConsoleScreen : public Screen {
 public:
  ConsoleScreen(HANDLE console, HANDLE screenBuffer) : usual(console), buffer(screenBuffer) {
    const CONSOLE_CURSOR_INFO hidden = {1, FALSE};
    SetConsoleCursorInfo(buffer, &hidden);
    SetConsoleActiveScreenBuffer(buffer);
  }
  ~ConsoleScreen() override {
    SetConsoleActiveScreenBuffer(usual);
    CloseHandle(buffer);
  }

  int Columns() override { return Window().Right - Window().Left + 1; }
  int Rows() override { return Window().Bottom - Window().Top + 1; }

  // Draws what is different from before only, which a slow terminal thanks for.
  void Draw(const std::vector<std::string>& lines) override {
    const SMALL_RECT window = Window();
    const bool moved = std::memcmp(&window, &windowBefore, sizeof window) != 0;
    windowBefore = window;
    for (std::size_t row = 0; row < static_cast<std::size_t>(Rows()); ++row) {
      const std::string line = row < lines.size() ? lines[row] : std::string();
      if (!moved && line == (row < before.size() ? before[row] : std::string())) continue;
      DrawLine({window.Left, static_cast<SHORT>(window.Top + static_cast<SHORT>(row))},
               Utf8ToWide(line));
    }
    before = lines;
  }

 private:
  SMALL_RECT Window() {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    GetConsoleScreenBufferInfo(buffer, &info);
    return info.srWindow;
  }

  // Neither moves the cursor nor scrolls, so that the last place of the screen can be used too.
  void DrawLine(COORD place, std::wstring line) {
    const auto columns = static_cast<std::size_t>(Columns());
    line.resize(std::max(line.size(), columns), L' ');
    DWORD written = 0;
    WriteConsoleOutputCharacterW(buffer, line.c_str(), static_cast<DWORD>(columns), place,
                                 &written);
  }

  HANDLE usual;
  HANDLE buffer;
  SMALL_RECT windowBefore = {};
  std::vector<std::string> before;
};

}  // namespace

std::unique_ptr<Screen> OpenConsoleScreen(std::FILE* file) {
  const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (!GetConsoleScreenBufferInfo(console, &info)) return nullptr;
  const HANDLE buffer =
      CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, CONSOLE_TEXTMODE_BUFFER, nullptr);
  if (buffer == INVALID_HANDLE_VALUE) return nullptr;
  return std::make_unique<ConsoleScreen>(console, buffer);
}

}  // namespace corvalint::host
