#include "ports/free_udp_port.h"

#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <stdexcept>

#include "device/loopback.h"

namespace corvalint::test {

namespace {

// The numbers above those of services and below those that the system gives out by itself.
constexpr unsigned kFirst = 10240;
constexpr unsigned kBlock = 1024;
constexpr unsigned kBlocks = 21;

// A socket bound to that number of 127.0.0.1, or -1.
int Bound(int type, unsigned port) {
  const int made = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const sockaddr_in address = device::Loopback(static_cast<std::uint16_t>(port));
  if (bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return made;
  close(made);
  return -1;
}

// The first number of a block that belongs to this program: the TCP socket with that number, which
// stays open until the program ends, keeps all others out.
unsigned TakeBlock() {
  const auto start = static_cast<unsigned>(getpid());
  for (unsigned i = 0; i < kBlocks; ++i) {
    const unsigned first = kFirst + (start + i) % kBlocks * kBlock;
    if (Bound(SOCK_STREAM, first) >= 0) return first;
  }
  throw std::runtime_error("every block of UDP numbers belongs to another test program");
}

}  // namespace

std::uint16_t FreeUdpPort() {
  static std::mutex lock;
  static unsigned next = 0;
  const std::lock_guard hold(lock);
  static const unsigned first = TakeBlock();
  for (unsigned tries = 0; tries < kBlock; ++tries) {
    const unsigned port = first + next++ % kBlock;
    const int probe = Bound(SOCK_DGRAM, port);
    if (probe < 0) continue;
    close(probe);
    return static_cast<std::uint16_t>(port);
  }
  throw std::runtime_error("no free UDP number");
}

}  // namespace corvalint::test
