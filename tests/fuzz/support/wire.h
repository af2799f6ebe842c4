#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint::fuzz {

// The sockets of the fuzz targets: streams whose bytes arrive in cuts that the input chooses, and
// UDP sockets that end the thread that waits for them.
struct Wire {
  // How the next waits, receives and sends go, one byte each, over and over. Empty: everything at
  // once.
  std::string_view pattern;
  bool endsWithError = false;  // a stream ends with -1 instead of 0
  bool sendsInPieces = false;
  bool staysBlocking = false;  // streams cannot be made non-blocking

  // What the stream that is received from next has still to give, and what each stream was sent.
  std::string_view incoming;
  std::vector<std::string> sent;
  bool sendWasShort = false;  // in any stream

  struct Datagram {
    std::string bytes;
    bool fails = false;  // the receive fails instead
  };
  struct SentDatagram {
    std::string bytes;
    std::uint32_t address;
    std::uint16_t port;
    bool operator==(const SentDatagram&) const = default;
  };
  // What the next thread that waits for datagrams finds, last one first. It ends without any.
  std::vector<Datagram> datagrams;
  std::vector<SentDatagram> datagramsSent;
  int socketFailures = 0;  // UDP sockets that cannot be had

  // Run in each wait, for a stream and for datagrams, before it is answered.
  void (*whenWaiting)() = nullptr;
  void (*whenWaitingForDatagrams)() = nullptr;

  // The addresses there are, in network byte order; 0 for a text that is none.
  static std::uint32_t AddressOf(const std::string& text);
  // A socket of a new stream.
  int OpenStream(std::string_view bytes);
  // Fails when a socket or waker is open beyond `wakersInUse`; begins afresh.
  void Reset(int wakersInUse);

  // The state of the calls.
  std::size_t step = 0;
  bool disturbed = false;
  int lastError = 0;
  std::map<int, bool> open;  // sockets and whether each is a stream
  int wakers = 0;
};

// The one wire, put in force by the first call.
Wire& TheWire();

}  // namespace corvalint::fuzz
