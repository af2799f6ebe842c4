#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "bench/bridge.h"
#include "bench/loopback.h"

namespace corvalint::bench {

// One device streams on 64 OSC ports, both ways: through the library, or through sockets alone.

// Desktop programs with a UDP socket each, at numbers of 127.0.0.1. For one thread.
class UdpEnds {
 public:
  explicit UdpEnds(std::size_t count);
  ~UdpEnds();
  UdpEnds(const UdpEnds&) = delete;
  UdpEnds& operator=(const UdpEnds&) = delete;

  const std::vector<int>& Sockets() const { return sockets; }
  const std::vector<std::uint16_t>& Numbers() const { return numbers; }
  // Throws away what has arrived; how many datagrams that were.
  std::size_t Drain() const;

 private:
  std::vector<int> sockets;
  std::vector<std::uint16_t> numbers;
};

// What is sent for as long as it lives: 50 datagrams a second to each of the numbers, and as many
// "/osc" frames into the device's end of the stream.
class OscTraffic {
 public:
  // `frames` has one for each number. All must outlive the object.
  OscTraffic(const std::vector<std::uint16_t>& numbers, int stream,
             const std::vector<std::vector<char>>& frames);
  ~OscTraffic();
  OscTraffic(const OscTraffic&) = delete;
  OscTraffic& operator=(const OscTraffic&) = delete;

 private:
  void Run(const std::vector<std::uint16_t>& numbers, int stream,
           const std::vector<std::vector<char>>& frames) const;

  std::atomic<bool> done{false};
  std::thread thread;
};

// The ports of the library, which a device opens and which stay open; and the programs that they
// send to.
class LibraryOscPorts {
 public:
  LibraryOscPorts(const Bridge& bridge, std::size_t device);

  const std::vector<std::uint16_t>& Numbers() const { return numbers; }
  const std::vector<std::vector<char>>& Frames() const { return frames; }
  const UdpEnds& Programs() const { return programs; }

 private:
  UdpEnds programs;
  std::vector<std::uint16_t> numbers;
  std::vector<std::vector<char>> frames;
};

// The same without the library: a thread for each socket, which writes a prepared frame to the
// stream for each datagram, and one that reads the stream and sends a datagram for each frame.
class BareOscPorts {
 public:
  // Takes the frames of the library's ports, and sends to the same programs.
  explicit BareOscPorts(const LibraryOscPorts& library);
  ~BareOscPorts();
  BareOscPorts(const BareOscPorts&) = delete;
  BareOscPorts& operator=(const BareOscPorts&) = delete;

  const std::vector<std::uint16_t>& Numbers() const { return ports.Numbers(); }
  // The device's end of the stream.
  int Stream() const { return link.device; }

 private:
  void ToStream(std::size_t port) const;
  void FromStream() const;

  const LibraryOscPorts& library;
  const UdpEnds ports;
  const Loopback link = MakeLoopback(Buffers::large);
  std::vector<std::thread> threads;
};

}  // namespace corvalint::bench
