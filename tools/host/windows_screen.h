#pragma once

#include <cstdio>
#include <memory>

#include "host/wrapper.h"

namespace corvalint::host {

// Takes the console that the file is, whatever stood there comes back when the screen ends. Null if
// the file is no console or the system refuses.
std::unique_ptr<Screen> OpenConsoleScreen(std::FILE* file);

}  // namespace corvalint::host
