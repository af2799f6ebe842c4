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

  // What the open stream has still to give, and what each stream was sent.
  std::string_view incoming;
  std::vector<std::string> sent;
  bool sendWasShort = false;  // in any stream

  // Sizes of the datagrams that the next waiting thread finds.
  std::vector<int> datagrams;

  // Runs in each wait of a stream, before it is answered.
  void (*whenWaiting)() = nullptr;

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
