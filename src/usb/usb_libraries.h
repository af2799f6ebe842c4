#pragma once

namespace corvalint {

// Finds the folders of Apple's libraries in the registry, makes the first one the process's DLL
// directory and loads the libraries, so that the first call of each of their functions binds to
// these. Every failure is a line in the log, none is reported. Once, on the host's thread, after
// the log is open.
void LoadUsbLibraries();

}  // namespace corvalint
