#include "fuzz/support/wire.h"

#include <algorithm>
#include <cstring>

#include "fuzz/support/check.h"
#include "platform/datagram.h"
#include "platform/socket.h"

namespace corvalint::fuzz {

namespace {

constexpr int kFirstStream = 100;
constexpr int kFirstDatagramSocket = 10000;

std::uint8_t NextStep() {
  Wire& wire = TheWire();
  if (wire.pattern.empty()) return 0xF8;
  return static_cast<std::uint8_t>(wire.pattern[wire.step++ % wire.pattern.size()]);
}

std::size_t PieceOf(std::uint8_t step) {
  const std::size_t root = step >> 3;
  return TheWire().pattern.empty() ? std::size_t{1} << 20 : 1 + root * root;
}

bool IsStream(int socket) {
  const auto entry = TheWire().open.find(socket);
  Check(entry != TheWire().open.end(), "a socket after its close");
  return entry->second;
}

int Failed(SocketError error) {
  TheWire().lastError = static_cast<int>(error);
  return -1;
}

// A wait is disturbed at most once in a row.
bool Disturb(std::uint8_t step, std::uint8_t kind) {
  Wire& wire = TheWire();
  if ((step & 7) != kind || wire.disturbed) return false;
  return wire.disturbed = true;
}

SocketReadiness Wait(int socket, bool wantWritable, int) {
  Wire& wire = TheWire();
  if (!IsStream(socket)) {
    return wire.datagrams.empty() ? SocketReadiness{.exceptional = true}
                                  : SocketReadiness{.readable = true};
  }
  if (wire.whenWaiting != nullptr) wire.whenWaiting();
  const std::uint8_t step = NextStep();
  if (Disturb(step, 4)) return {.woken = true};
  if (Disturb(step, 5)) {
    Failed(SocketError::interrupted);
    return {.failed = true};
  }
  if (Disturb(step, 6)) return {.exceptional = true, .writable = wantWritable};
  wire.disturbed = false;
  return {.readable = true, .writable = wantWritable && (step & 8) != 0};
}

int Receive(int socket, void* data, int size) {
  Wire& wire = TheWire();
  Check(IsStream(socket) && size > 0, "a receive");
  if (wire.disturbed) return Failed(SocketError::wouldBlock);
  if (wire.incoming.empty()) return wire.endsWithError ? Failed(SocketError::other) : 0;
  const std::size_t count =
      std::min({static_cast<std::size_t>(size), wire.incoming.size(), PieceOf(NextStep())});
  std::memcpy(data, wire.incoming.data(), count);
  wire.incoming.remove_prefix(count);
  return static_cast<int>(count);
}

int Send(int socket, const void* data, int size) {
  Wire& wire = TheWire();
  Check(IsStream(socket) && size > 0, "a send");
  auto count = static_cast<std::size_t>(size);
  if (wire.sendsInPieces) {
    const std::uint8_t step = NextStep();
    count = std::min(count, PieceOf(step));
    wire.sendWasShort |= count < static_cast<std::size_t>(size);
    if ((step & 7) == 7) {
      wire.sendWasShort = true;
      return Failed(SocketError::wouldBlock);
    }
  }
  wire.sent.back().append(static_cast<const char*>(data), count);
  return static_cast<int>(count);
}

int Close(int socket) {
  Check(TheWire().open.erase(socket) == 1, "a socket closed twice");
  return 0;
}

const SocketApi kSockets{
    .startUp = [] { return 0; },
    .wait = Wait,
    .receive = Receive,
    .send = Send,
    .setNonBlocking = [](int) { return 0; },
    .setNoDelay = [](int) { return 0; },
    .shutdown =
        [](int socket) {
          IsStream(socket);
          return 0;
        },
    .close = Close,
    .lastError = [] { return static_cast<SocketError>(TheWire().lastError); },
    .openWaker = [] { return ++TheWire().wakers; },
    .wake = [](int waker) { Check(waker > 0, "a waker"); },
    .closeWaker = [](int) { --TheWire().wakers; },
    .toNetworkOrder =
        [](std::uint16_t value) { return static_cast<std::uint16_t>(value << 8 | value >> 8); },
};

int ReceiveDatagram(int socket, void* data, int size) {
  Wire& wire = TheWire();
  Check(!IsStream(socket), "a datagram from a stream");
  if (wire.datagrams.empty()) return Failed(SocketError::wouldBlock);
  const int count = wire.datagrams.back();
  wire.datagrams.pop_back();
  if (count < 0) return Failed(SocketError::other);
  Check(count <= size, "a buffer that is too small");
  std::memset(data, 'd', static_cast<std::size_t>(count));
  return count;
}

// Dotted numbers only; what else is an address is the system's business.
bool ParseAddress(const std::string& text, std::uint32_t* address) {
  *address = text == "127.0.0.1" ? 0x0100007F : 0;
  return *address != 0;
}

const DatagramApi kDatagrams{
    .open =
        [] {
          static int last = kFirstDatagramSocket;
          TheWire().open.emplace(++last, false);
          return last;
        },
    .bindLoopback = [](int socket,
                       std::uint16_t port) { return IsStream(socket) || port < 9 ? -1 : 0; },
    .receive = ReceiveDatagram,
    .send = [](int socket, const void*, int size, std::uint32_t,
               std::uint16_t) { return IsStream(socket) ? -1 : size; },
    .parseAddress = ParseAddress,
};

}  // namespace

int Wire::OpenStream(std::string_view bytes) {
  incoming = bytes;
  sent.emplace_back();
  const int socket = kFirstStream + static_cast<int>(sent.size());
  open.emplace(socket, true);
  return socket;
}

void Wire::Reset(int wakersInUse) {
  Check(open.empty(), "a socket that nobody closed");
  Check(wakers == wakersInUse, "a waker that nobody closed");
  *this = {};
  wakers = wakersInUse;
}

Wire& TheWire() {
  static Wire* const wire = [] {
    Install<SocketApi>(&kSockets);
    Install<DatagramApi>(&kDatagrams);
    return new Wire;
  }();
  return *wire;
}

}  // namespace corvalint::fuzz
