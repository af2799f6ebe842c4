#pragma once

#include <string>

namespace corvalint {

// Prepares the process (sockets, log, device libraries) and starts the service thread. There is no
// guard against a second call, on purpose: it starts a second service. Never throws.
void StartService();

// The folder of the host's executable, without a trailing backslash; empty when the path has none.
std::string HostFolder();

}  // namespace corvalint
