#pragma once

#include <cstdio>
#include <string>

// What the library prints, kept apart from what this program prints. Main thread only.
namespace corvalint::host {

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

}  // namespace corvalint::host
