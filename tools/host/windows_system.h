#pragma once

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>

#include "host/wrapper.h"

// The Windows side of the host. All texts are UTF-8. Main thread only.
namespace corvalint::host {

// The library cannot be used; the text says which file or which export is missing.
struct NoLibrary : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Loads corvalint_wrapper.dll from the folder of this program and binds its twenty exports. Throws
// NoLibrary.
Wrapper LoadWrapper();

// Fills the table. A Ctrl-C is noted for takeInterrupt if that was asked within the last second,
// which is what a watch does; otherwise it ends the program.
System MakeSystem();

// Where the lines go that the library prints.
enum class LibraryLines { kNowhere, kToStderr, kKept };

// Gives this program a standard output of its own and turns the process's, which the library prints
// to, elsewhere. With `asBytes` line ends are written as they are. Null if the system refuses.
// Stays open to the program's end. Once.
std::FILE* SeparateOutput(LibraryLines lines, bool asBytes);

// What the library has printed so far, if it is kept, without what was taken. Of very much the
// beginning is lost.
std::string KeptLines();
std::string TakeKeptLines();

// Columns of the terminal that the file is; 0 if it is none.
int TerminalColumns(std::FILE* file);

// True if a person types the input.
bool InputIsConsole();

// The next line of standard input without its line end; empty at its end. A console is read as
// UTF-16, since its byte interface loses what the code page lacks.
std::optional<std::string> ReadInputLine();

// While it lives, a console on this process shows UTF-8.
class Utf8Console {
 public:
  Utf8Console();
  ~Utf8Console();
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;

 private:
  unsigned int codePageBefore;
};

}  // namespace corvalint::host
