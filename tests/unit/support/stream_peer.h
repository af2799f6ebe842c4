#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace corvalint::test {

// The bytes of one frame on a device's stream.
std::string FrameOf(const std::string& payload, std::uint32_t kind = 2, std::uint32_t tag = 2);

// The device's end of a stream. What takes longer than a generous time-out fails the test. For one
// thread, but any.
class StreamPeer {
 public:
  // Takes over the socket.
  explicit StreamPeer(int connected) : socket(connected) {}
  ~StreamPeer() { Close(); }
  StreamPeer(const StreamPeer&) = delete;
  StreamPeer& operator=(const StreamPeer&) = delete;

  void Send(const std::string& bytes);
  void SendFrame(const std::string& payload, std::uint32_t kind = 2, std::uint32_t tag = 2);
  // One byte of urgent data.
  void SendUrgent(char byte);

  // Exactly that many bytes; what there is, and a failed test, when the stream ends before.
  std::string Receive(std::size_t count);
  // Waits for bytes and gives what there is, as long as it is not very much; none at the end of the
  // stream.
  std::string ReceiveSome();
  // The payload of the next frame, whose second and third word must be 2.
  std::string ReceiveFrame();
  // Waits for the library to say or end something: true when it has ended the stream.
  bool Ended();
  // Whether nothing is there to be read at the moment.
  bool Silent();

  // The library reads an end of stream; it can still send.
  void EndSending();
  // The library's next reading fails instead of ending, and its sending too.
  void Reset();
  void Close();

 private:
  bool WaitReadable();

  int socket;
};

// A connected pair over TCP, as the device library opens it: blocking.
struct StreamPair {
  int library;  // whoever takes it closes it
  std::unique_ptr<StreamPeer> peer;
};

// `buffer` above 0 makes the buffers of both ends about that small.
StreamPair MakeStreamPair(int buffer = 0);

}  // namespace corvalint::test
