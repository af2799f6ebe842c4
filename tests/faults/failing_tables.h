#pragma once

#include <cstdint>
#include <string>

namespace corvalint::faults {

// Puts a table of their own over the ones in force: each call is counted and passed on, or fails as
// the real function does. Called once, after the fakes were installed.
void WrapDeviceLibraries();
void WrapSystem();

// Where the host's executable lies, and with it log and configuration; with slashes.
void SetHostFolder(const std::string& folder);

// The device's end of the next stream that the library opened to that connection; 0 when there is
// none. Non-blocking, the caller's to close.
int TakeStream(std::uint32_t connectionId);

// Where the library's UDP port of a number is really bound: at a number of the system's choice, so
// that runs beside each other do not meet. 0 until it is.
std::uint16_t PortOnThisMachine(std::uint16_t port);

// The connection that a socket of the library is the stream of, 0 for none.
int DeviceOfSocket(int socket);

}  // namespace corvalint::faults
