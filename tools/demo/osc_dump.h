#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "demo/udp_socket.h"
#include "harness/process.h"

namespace corvalint::demo {

// A running oscdump (package liblo-tools) at a free UDP port of 127.0.0.1, and what it prints. Ends
// with this object. For one thread; operations throw std::runtime_error once the program has ended.
class OscDump {
 public:
  struct Line {
    std::int64_t ns = 0;  // of CLOCK_MONOTONIC_RAW, when the line was read
    std::string text;     // without oscdump's own time
  };

  // Returns when it listens.
  OscDump();
  ~OscDump();

  std::uint16_t Port() const { return port; }
  // Returns when everything that was sent to it before has been printed and read.
  void Flush();
  // Lines since the last Forget, those of Flush left out.
  std::size_t Count();
  std::vector<Line> Lines();
  void Forget();

 private:
  void Read();
  void Take(const std::string& text, std::int64_t ns);

  UdpSocket socket;
  const std::uint16_t port;
  harness::Process process;
  std::int32_t marks = 0;  // sent by Flush

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Line> lines;  // guarded by `mutex`
  std::string lastMark;     // guarded by `mutex`
  bool ended = false;       // guarded by `mutex`
  std::size_t seen = 0;     // of what the program has printed; of the reader
  std::string partialLine;  // of the reader
  std::thread reader;
};

}  // namespace corvalint::demo
