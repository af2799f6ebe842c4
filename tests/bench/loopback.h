#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvalint::bench {

// Both ends of one TCP connection over the loopback interface, as descriptors.
struct Loopback {
  int library = -1;
  int device = -1;
};

// How large the buffers of a connection are made.
enum class Buffers {
  asTheyCome,
  large  // a whole burst fits; as the system allows it when the process may not force it
};

// Small frames go out at once at both ends. Throws std::system_error.
Loopback MakeLoopback(Buffers buffers);

// As many bytes as fit without waiting.
std::size_t WriteWhatFits(int socket, const std::vector<char>& bytes);
// All bytes from `begin` on. Throws std::system_error.
void WriteAll(int socket, const char* bytes, std::size_t count);
// Reads what has arrived and throws it away; its size.
std::size_t Drain(int socket);

}  // namespace corvalint::bench
