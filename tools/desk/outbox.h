#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace corvalint::desk {

// Lines on their way to the test: replies, events, recorded output. Any thread may add lines;
// adding never waits for the network. One writer thread drains it. Unbounded: the test must keep
// reading.
class Outbox {
 public:
  static Outbox& Get();

  // Lines are thrown away until a control connection exists.
  void SetConnected(bool connected);

  // Adds one line (without its line end).
  void Line(std::string_view line);

  // Adds "! TEXT".
  void Event(std::string_view text);

  // Something that no caller may do with the real library. Counted as well as told.
  void Violation(std::string_view text);
  std::uint64_t Violations();

  // One recorded message: "KIND ID NANOSECONDS HEX". With counting only, nothing is sent.
  void Recorded(char kind, int id, std::int64_t when, const std::uint8_t* data, std::size_t length);
  void SetStreaming(bool streaming);

  // Waits for lines and moves all of them into `out`. False when the connection was given up.
  bool Take(std::string& out);

 private:
  std::mutex lock;
  std::condition_variable filled;
  std::string pending;
  std::uint64_t violations = 0;
  bool connected = false;
  bool streaming = true;
};

}  // namespace corvalint::desk
