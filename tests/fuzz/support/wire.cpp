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
    if (wire.whenWaitingForDatagrams != nullptr) wire.whenWaitingForDatagrams();
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
  wire.sent[static_cast<std::size_t>(socket - kFirstStream - 1)].append(
      static_cast<const char*>(data), count);
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
    .setNonBlocking =
        [](int socket) {
          Check(IsStream(socket), "a datagram socket made non-blocking");
          return TheWire().staysBlocking ? -1 : 0;
        },
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
  const Wire::Datagram datagram = std::move(wire.datagrams.back());
  wire.datagrams.pop_back();
  if (datagram.fails) return Failed(SocketError::other);
  const std::size_t count = datagram.bytes.size();
  Check(count <= static_cast<std::size_t>(size), "a buffer that is too small");
  std::memcpy(data, datagram.bytes.data(), count);
  return static_cast<int>(count);
}

int SendDatagram(int socket, const void* data, int size, std::uint32_t address,
                 std::uint16_t port) {
  Check(!IsStream(socket), "a datagram into a stream");
  const std::string bytes(static_cast<const char*>(data), static_cast<std::size_t>(size));
  TheWire().datagramsSent.push_back({bytes, address, port});
  return size;
}

int OpenDatagramSocket() {
  static int last = kFirstDatagramSocket;
  Wire& wire = TheWire();
  if (wire.socketFailures > 0) return --wire.socketFailures % 2 == 0 ? 0 : -1;
  wire.open.emplace(++last, false);
  return last;
}

// The lowest numbers are taken.
int BindLoopback(int socket, std::uint16_t port) {
  Check(!IsStream(socket), "a stream bound");
  return port > 0 && port < 9 ? -1 : 0;
}

bool ParseAddress(const std::string& text, std::uint32_t* address) {
  *address = Wire::AddressOf(text);
  return *address != 0;
}

const DatagramApi kDatagrams{
    .open = OpenDatagramSocket,
    .bindLoopback = BindLoopback,
    .receive = ReceiveDatagram,
    .send = SendDatagram,
    .parseAddress = ParseAddress,
};

}  // namespace

std::uint32_t Wire::AddressOf(const std::string& text) {
  if (text == "127.0.0.1") return 0x0100007F;
  return text == "10.1.2.3" ? 0x0302010A : 0;
}

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
