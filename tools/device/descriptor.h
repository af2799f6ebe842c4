#pragma once

#include <cstdint>
#include <utility>

namespace corvalint::device {

// Owns a file descriptor and closes it.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : fd(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      fd = std::exchange(other.fd, -1);
    }
    return *this;
  }
  ~Descriptor() { Close(); }

  int Get() const { return fd; }
  bool Open() const { return fd >= 0; }
  void Close();

 private:
  int fd = -1;
};

// A TCP socket bound to 127.0.0.1:port (0 = any free one), not yet listening. A `receiveBuffer`
// above 0 bounds the kernel's buffer, in bytes, of the streams it accepts later.
// Throws std::system_error.
Descriptor BindLoopback(std::uint16_t port, int receiveBuffer);

// The local port of a bound socket. Throws std::system_error.
std::uint16_t LocalPort(const Descriptor& socket);

// Makes a bound socket listen, non-blocking. Throws std::system_error.
void Listen(const Descriptor& socket);

// The next waiting stream, non-blocking and without send delay; not open when none is waiting any
// more. Throws std::system_error.
Descriptor Accept(const Descriptor& listener);

// Makes the close of the stream send a reset instead of a regular end.
void ResetOnClose(const Descriptor& stream);

// Bytes sent that the peer's machine has not acknowledged yet.
int Unacknowledged(const Descriptor& stream);

// An eventfd. Throws std::system_error.
Descriptor MakeWakeup();
// Wakes the poll() that watches `wakeup`.
void Wake(const Descriptor& wakeup);
// Takes all wake-ups so far.
void TakeWakeups(const Descriptor& wakeup);

}  // namespace corvalint::device
