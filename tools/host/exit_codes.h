#pragma once

namespace corvalint::host {

// What the program's exit code says. The manual (docs/host-tool.md, --help) lists the same numbers.
inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;      // it was tried and did not succeed
inline constexpr int kExitUsage = 2;       // the command line or a command makes no sense
inline constexpr int kExitNoLibrary = 3;   // the DLL is missing, or is another one
inline constexpr int kExitNoEndpoint = 4;  // no endpoint has that id or name
inline constexpr int kExitAmbiguous = 5;   // more than one endpoint has that id or name
inline constexpr int kExitNoOutput = 6;    // nobody takes what the program writes
inline constexpr int kExitBroken = 7;      // the doctor found a broken link

}  // namespace corvalint::host
