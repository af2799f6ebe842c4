#pragma once

#include <windows.h>

#include <string>

// Modules of this process: where they lie and what they export. Any thread.
namespace corvalint::host {

// The whole path of a module; of this program for null.
std::wstring PathOf(HMODULE module);

// The folder of this program, with a backslash at its end.
std::wstring ProgramFolder();

// The export of that name as a pointer of that type; null if the module has none.
template <typename Function>
Function ExportOf(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace corvalint::host
