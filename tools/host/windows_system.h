#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "host/wrapper.h"

// The Windows side of the host. All texts are UTF-8. Main thread only.
namespace corvalint::host {

// Fills the table. A Ctrl-C is noted for takeInterrupt if that was asked within the last second,
// which is what a watch does; otherwise it ends the program.
System MakeSystem();

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
