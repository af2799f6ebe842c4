#pragma once

#include <string>

namespace corvalint::host {

// The text of --help, which reads like a manual page.
std::string HelpText();

// The text of the command `help`: the commands alone.
std::string CommandsText();

}  // namespace corvalint::host
