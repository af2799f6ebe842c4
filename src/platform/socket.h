#pragma once

#include <cstdint>

#include "platform/seam.h"

namespace corvalint {

// TCP streams and what waits for sockets. A socket is a positive 32-bit number and belongs to
// whoever has it, who closes it once; 0 means none (the 0 that POSIX may hand out is never used).
// Any thread, and several at a time but where a function says otherwise.

enum class SocketError { none, wouldBlock, interrupted, other };

// What a wait saw; several can be true at once.
struct SocketReadiness {
  bool readable = false;  // data, an end of stream or an error can be read
  bool exceptional = false;
  bool writable = false;  // only when it was asked for
  bool woken = false;     // the waker was signalled; the signal is consumed
  bool failed = false;    // the wait itself failed; `SocketApi::lastError` tells why
};

struct SocketApi {
  // Prepares the process for sockets, version 2.2. Non-zero when that failed.
  int (*startUp)();

  // Blocks until `socket` is readable, exceptional or (when asked) writable, or until `waker` is
  // signalled. A `socket` or `waker` of 0 is not waited for; with both 0 the wait fails. No
  // time-out. One thread at a time waits with the same waker.
  SocketReadiness (*wait)(int socket, bool wantWritable, int waker);
  // Bytes received, 0 at the end of the stream, -1 on failure. `size` is above 0.
  int (*receive)(int socket, void* data, int size);
  // Bytes taken, which may be fewer than `size`, or -1. Never raises a signal.
  int (*send)(int socket, const void* data, int size);
  // From then on no call but `wait` blocks. 0, or -1 on failure, as for the next three.
  int (*setNonBlocking)(int socket);
  // Small frames go out at once instead of waiting for an acknowledgement.
  int (*setNoDelay)(int socket);
  // Ends both directions; wakes whoever waits for the socket.
  int (*shutdown)(int socket);
  // Gives the number back; no thread may be inside a call with it.
  int (*close)(int socket);
  // Why the calling thread's last call failed; undefined after one that did not.
  SocketError (*lastError)();

  // A waker lets another thread end a `wait`. 0 when none could be made. A signal given before the
  // wait begins ends it at once; several signals before a wait count as one. Whoever opened a waker
  // closes it, while nobody waits with it or wakes it.
  int (*openWaker)();
  void (*wake)(int waker);
  void (*closeWaker)(int waker);

  // A 16-bit number in network byte order.
  std::uint16_t (*toNetworkOrder)(std::uint16_t value);

  static const SocketApi& System();
};

}  // namespace corvalint
