#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "harness/process.h"

namespace corvalint::harness {

// The test's end of the control connection: listens on a loopback port, sends commands and waits
// for their replies, and hands every other line to a listener. Commands may be sent from any
// thread.
class ControlServer {
 public:
  // Called on the connection's own thread; must not send commands.
  using Listener = std::function<void(std::string_view line)>;

  // Throws std::runtime_error if it cannot listen.
  explicit ControlServer(Listener listener);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  std::uint16_t Port() const { return port; }

  bool WaitUntilConnected(std::chrono::milliseconds limit = kPatience);

  // The text behind "ok". Throws std::runtime_error when the desk answers "error", does not answer
  // in time, or is gone.
  std::string Send(const std::string& command, std::chrono::milliseconds limit = kPatience);

 private:
  void Serve();
  void ReadLines(int fd);
  void TakeLine(std::string_view line);
  void SendAll(int fd, std::string_view text);

  const Listener listener;
  int listenFd = -1;
  int wakeFd = -1;
  std::uint16_t port = 0;
  std::mutex lock;
  std::mutex sendLock;
  std::condition_variable changed;
  std::map<std::uint64_t, std::string> replies;
  std::uint64_t lastSequence = 0;
  int connectionFd = -1;
  bool gone = false;
  std::thread thread;
};

}  // namespace corvalint::harness
